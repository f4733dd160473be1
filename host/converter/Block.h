// SPDX-License-Identifier: Apache-2.0
// Blocks of a plane, and where they are displaced to.
#pragma once

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

// The difference of a displaced block that lies mostly outside: there is nothing to compare.
constexpr uint32_t kUnseen = UINT32_MAX;

}  // namespace qoz::host
