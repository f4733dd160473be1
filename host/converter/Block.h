// SPDX-License-Identifier: Apache-2.0
// Square blocks of a plane, and their displacements.
#pragma once

#include <cstdint>

namespace qoz::host {

// The displacement of a block in pixels of the plane that it is used on. The pyramid has planes of
// several sizes, so one displacement means different distances on each.
struct Displacement {
    int dx = 0;
    int dy = 0;

    bool operator==(const Displacement&) const = default;
};

// A square block; x and y are its top left pixel.
struct Block {
    int x;
    int y;
    int size;  // 8 or 16

    uint32_t area() const { return static_cast<uint32_t>(size * size); }
};

// The difference of a block whose displaced place lies mostly outside the plane, so that there is
// nothing to compare.
constexpr uint32_t kUnseen = UINT32_MAX;

}  // namespace qoz::host
