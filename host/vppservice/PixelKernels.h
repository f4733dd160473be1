// SPDX-License-Identifier: Apache-2.0
// Loops over whole planes, compiled for each vector extension and chosen at run time.
#pragma once

#include <cstddef>
#include <cstdint>

namespace qoz::host::vppservice {

// Rows of pixels in four planes, each `next` bytes behind the one before, that have one stride.
struct HalfPlanes {
    uint8_t* picture;  // the first pixel to make something of
    ptrdiff_t stride;
    ptrdiff_t next;
    int width;
    int height;
};

// The pixels around its own that the filter for half pixels reads.
constexpr int kFilterReach = 3;

// From the picture, what lies half a pixel to its right, half a pixel down, and both: into the
// second, the third and the fourth plane. kFilterReach pixels around all of it are read, and as
// much as a vector behind each row is written.
void makeHalfPixels(const HalfPlanes& planes);

// to = from + from * gain / 256 + offset, saturated.
void changeBrightness(const uint8_t* from, uint8_t* to, size_t count, int gain, int offset);

}  // namespace qoz::host::vppservice
