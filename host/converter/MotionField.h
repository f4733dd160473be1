// SPDX-License-Identifier: Apache-2.0
// The format of a motion field, by which the converter passes motion to the VPP service.
//
// A field is an RGBA buffer of fieldPixels x fieldHeight pixels, in rows without padding. For each
// 16x16 block of the source, in raster order, two pixels hold the eight bytes of one MotionVector.
//
// A field belongs to one frame of a pair (previous, current). Each of its vectors leads from a
// block of that frame to the matching place in the other frame. The forward field belongs to the
// previous frame: block (x, y) is at (x + dx, y + dy) in the current one. The backward field
// belongs to the current frame: block (x, y) was at (x + dx, y + dy) in the previous one. A picture
// that moves 5 pixels to the right has a dx of 5 pixels in the forward field and of -5 in the
// backward field.
//
// If the size of the source is not a multiple of the block's, the last column and row are measured
// on the last 16 pixels of the picture.
#pragma once

#include <cstdint>

namespace qoz::host {

constexpr uint32_t kMotionBlock = 16;  // width and height of a block, in pixels
constexpr int kMotionUnit = 8;         // steps of a vector per pixel
constexpr int kGainUnit = 256;         // a gain of 256 doubles the luma

// The motion of one block.
struct MotionVector {
    // The displacement to the right and downwards, in eighths of a pixel of the source.
    int16_t dx;
    int16_t dy;
    // The mean absolute luma difference of the match, 0 to 254. With 255 the vector leads out of
    // the picture: nothing was compared, and the vector comes from the neighbours.
    uint8_t error;
    // The mean absolute luma gradient of the block, |d/dx| + |d/dy|. 0 is flat: any vector fits.
    uint8_t texture;
    // The change of brightness between the frames, the same in all vectors of a field: luma v of
    // the frame that the field belongs to becomes v + v * gain / 256 + offset in the other frame.
    int8_t gain;
    int8_t offset;
};
static_assert(sizeof(MotionVector) == 8);

// The number of vectors in a row and in a column of the field.
constexpr uint32_t fieldWidth(uint32_t sourceWidth) {
    return (sourceWidth + kMotionBlock - 1) / kMotionBlock;
}
constexpr uint32_t fieldHeight(uint32_t sourceHeight) {
    return (sourceHeight + kMotionBlock - 1) / kMotionBlock;
}

// The width of the buffer in RGBA pixels.
constexpr uint32_t fieldPixels(uint32_t sourceWidth) {
    return fieldWidth(sourceWidth) * (sizeof(MotionVector) / 4);
}

}  // namespace qoz::host
