// SPDX-License-Identifier: Apache-2.0
// Loops over whole planes, compiled for each vector extension. The extension is chosen at run time.
#pragma once

#include <cstddef>
#include <cstdint>

namespace qoz::host {

class BlockLayout;
struct LumaPlane;

// Writes, for each block of the grid in raster order, the mean of |d/dx| + |d/dy| over it, 255 at
// most. A flat block has 0.
void measureTextures(const LumaPlane& plane, const BlockLayout& blocks, uint8_t* textures);

// Computes to = from + from * gain / 256 + offset for `count` pixels and saturates the result.
// `from` and `to` may be the same.
void changeBrightness(const uint8_t* from, uint8_t* to, size_t count, int gain, int offset);

}  // namespace qoz::host
