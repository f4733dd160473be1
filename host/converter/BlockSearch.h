// SPDX-License-Identifier: Apache-2.0
// Where the blocks of one frame went in another, found from coarse to fine.
#pragma once

#include <host/converter/BlockDifference.h>
#include <host/converter/LumaPyramid.h>

#include <array>
#include <cstddef>
#include <vector>

namespace qoz::host {

// No vector of a field is longer than this, either way: it fits a signed byte.
constexpr int kMaxDisplacement = 120;

struct BlockMatch {
    Displacement displacement;
    uint32_t difference = kUnseen;
};

// The blocks of one plane, in raster order.
class BlockGrid {
  public:
    void reset(const LumaPlane& plane, int columns, int rows, int blockSize);

    int columns() const { return mColumns; }
    int rows() const { return mRows; }

    bool has(int column, int row) const {
        return column >= 0 && row >= 0 && column < mColumns && row < mRows;
    }
    BlockMatch& at(int column, int row) { return mMatches[index(column, row)]; }
    const BlockMatch& at(int column, int row) const { return mMatches[index(column, row)]; }

    // The last ones end with the plane, so that every block is whole if the plane has room for it.
    Block block(int column, int row) const;

  private:
    size_t index(int column, int row) const {
        return static_cast<size_t>(row) * static_cast<size_t>(mColumns) +
               static_cast<size_t>(column);
    }

    std::vector<BlockMatch> mMatches;
    int mColumns = 0;
    int mRows = 0;
    int mBlockSize = 0;
    int mLastX = 0;
    int mLastY = 0;
};

class BlockSearch {
  public:
    // The grid of the full-size level: blocks of kMotionBlock pixels. It stands until the next
    // call, and may be improved on in place.
    BlockGrid& search(const LumaPyramid& from, const LumaPyramid& to);

    void release() { *this = BlockSearch(); }

  private:
    std::array<BlockGrid, LumaPyramid::kMaxLevels> mGrids;
};

}  // namespace qoz::host
