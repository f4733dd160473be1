// SPDX-License-Identifier: Apache-2.0
// Loops over whole planes, compiled for each vector extension and chosen at run time.
#pragma once

#include <cstddef>
#include <cstdint>

namespace qoz::host {

class BlockLayout;
struct LumaPlane;

// For each block of the grid, in raster order, the mean of |d/dx| + |d/dy| over it, 255 at most.
void measureTextures(const LumaPlane& plane, const BlockLayout& blocks, uint8_t* textures);

// to = from + from * gain / 256 + offset, saturated.
void changeBrightness(const uint8_t* from, uint8_t* to, size_t count, int gain, int offset);

}  // namespace qoz::host
