// SPDX-License-Identifier: Apache-2.0
// A motion field on the grid of nodes for which the plan of an interpolated frame chooses vectors.
#pragma once

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <vector>

#include "host/vppservice/Frames.h"

namespace qoz::host::vppservice {

constexpr int kNodeStep = 8;  // distance of nodes in a row and in a column, in pixels

// The motion from the older source to the newer one, in units of 1 / kMotionUnit pixel.
struct Vector {
    int16_t dx = 0;
    int16_t dy = 0;

    bool operator==(const Vector&) const = default;
};

// The larger of the differences in x and in y, in eighths of a pixel.
inline int distance(Vector a, Vector b) {
    return std::max(std::abs(a.dx - b.dx), std::abs(a.dy - b.dy));
}

// The vector of a field at one node, or the vector that has arrived at a node.
struct Arrival {
    static constexpr uint16_t kNothing = 0xFFFF;

    Vector vector;
    uint16_t rank = kNothing;  // lower is better
    bool sure = false;         // it moves by a pixel or more, and its block has texture
};

// A motion field on the grid of nodes, which is finer than its blocks. Its vectors lead from the
// older source to the newer one, whichever frame the field belongs to.
class NodeField {
  public:
    // Reads a field. `sign` is 1 for the forward field and -1 for the backward one.
    void read(const MotionVector* vectors, int sign, FrameSize size);

    int columns() const { return mColumns; }
    int rows() const { return mRows; }
    // The vector at a node. A node outside the grid stands for the nearest one inside.
    const Arrival& at(int column, int row) const {
        return mCells[static_cast<size_t>(std::clamp(row, 0, mRows - 1)) *
                          static_cast<size_t>(mColumns) +
                      static_cast<size_t>(std::clamp(column, 0, mColumns - 1))];
    }

  private:
    int mColumns = 0;
    int mRows = 0;
    std::vector<Arrival> mCells;
};

}  // namespace qoz::host::vppservice
