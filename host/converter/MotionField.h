// SPDX-License-Identifier: Apache-2.0
// How motion travels from the converter to the VPP service: the layout of one vector buffer.
//
// The buffer is an RGBA buffer of fieldPixels x fieldHeight pixels, rows without padding: for each
// 16x16 block of the source, in raster order, two pixels whose eight bytes are one MotionVector.
//
// A vector leads from a block of the frame that the field is laid over to its likeness in the other
// frame of the pair (previous, current). The forward field is laid over the previous frame: block
// (x, y) is at (x + dx, y + dy) in the current one. The backward field is laid over the current
// frame: block (x, y) was at (x + dx, y + dy) in the previous one. So a picture that moves 5 pixels
// to the right has 5 pixels of dx forward and -5 backward.
//
// Where the size of the source is no multiple of the block's, the last column and row are measured
// on the 16 pixels that end with the picture.
#pragma once

#include <cstdint>

namespace qoz::host {

constexpr uint32_t kMotionBlock = 16;  // pixels, both ways
constexpr int kMotionUnit = 8;         // steps of a vector to the pixel
constexpr int kGainUnit = 256;         // steps of a gain to one

struct MotionVector {
    int16_t dx;       // displacement in eighths of a pixel of the source, to the right
    int16_t dy;       // downwards
    uint8_t error;    // mean absolute luma difference of the match, 0 to 254; 255: the vector leads
                      // out of the picture (it is the neighbourhood's), nothing was compared
    uint8_t texture;  // mean absolute luma gradient of the block, |d/dx| + |d/dy|: 0 is flat, any
                      // vector fits
    // The pair's change of brightness, the same in all vectors of a field: luma v of the frame that
    // the field is laid over is v + v * gain / 256 + offset in the other one.
    int8_t gain;
    int8_t offset;
};
static_assert(sizeof(MotionVector) == 8);

// Vectors of a field.
constexpr uint32_t fieldWidth(uint32_t sourceWidth) {
    return (sourceWidth + kMotionBlock - 1) / kMotionBlock;
}
constexpr uint32_t fieldHeight(uint32_t sourceHeight) {
    return (sourceHeight + kMotionBlock - 1) / kMotionBlock;
}

// Width of the buffer, in RGBA pixels.
constexpr uint32_t fieldPixels(uint32_t sourceWidth) {
    return fieldWidth(sourceWidth) * (sizeof(MotionVector) / 4);
}

}  // namespace qoz::host
