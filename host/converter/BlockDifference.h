// SPDX-License-Identifier: Apache-2.0
// How much a block of one plane differs from a displaced block of another: the sum of the absolute
// differences of their pixels.
#pragma once

#include <host/converter/LumaPyramid.h>

#include <cstdint>

namespace qoz::host {

// In pixels of the plane it is used on.
struct Displacement {
    int dx = 0;
    int dy = 0;

    bool operator==(const Displacement&) const = default;
};

struct Block {
    int x;
    int y;
    int size;  // 8 or 16

    uint32_t area() const { return static_cast<uint32_t>(size * size); }
};

// The displaced block lies mostly outside: there is nothing to compare.
constexpr uint32_t kUnseen = UINT32_MAX;

// A block of which a part, half at most, is outside counts as much as a whole one.
uint32_t blockDifference(const LumaPlane& from, const LumaPlane& to, const Block& block,
                         Displacement displacement);

// Mean over the block of |d/dx| + |d/dy|, 255 at most.
uint8_t blockTexture(const LumaPlane& plane, const Block& block);

}  // namespace qoz::host
