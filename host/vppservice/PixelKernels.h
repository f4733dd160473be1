// SPDX-License-Identifier: Apache-2.0
// Loops over whole planes, compiled for each vector extension. The extension is chosen at run time.
#pragma once

#include <cstddef>
#include <cstdint>

namespace qoz::host::vppservice {

// The pixels to be processed in four planes of equal stride, which follow each other at a distance
// of `next` bytes.
struct HalfPlanes {
    uint8_t* picture;  // the first pixel to be processed in the first plane
    ptrdiff_t stride;
    ptrdiff_t next;
    int width;  // pixels
    int height;
};

// The number of pixels that the filter for half pixels reads on each side.
constexpr int kFilterReach = 3;

// Computes the picture between its pixels: half a pixel to the right into the second plane, half a
// pixel down into the third, and both into the fourth. Reads kFilterReach pixels around the given
// ones, and may write up to one vector past the end of each row.
void makeHalfPixels(const HalfPlanes& planes);

// Computes to = from + from * gain / 256 + offset for `count` pixels and saturates the result.
void changeBrightness(const uint8_t* from, uint8_t* to, size_t count, int gain, int offset);

}  // namespace qoz::host::vppservice
