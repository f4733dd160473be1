// SPDX-License-Identifier: Apache-2.0
// The blocks of one plane and where each of them was found.
#pragma once

#include <host/converter/Block.h>
#include <host/converter/LumaPyramid.h>

#include <algorithm>
#include <cstddef>
#include <vector>

namespace qoz::host {

// No vector of a field is longer than this, either way. Pixels.
constexpr int kMaxDisplacement = 120;

// Where a block was found in another plane, and how much it differs there.
struct BlockMatch {
    Displacement displacement;
    uint32_t difference = kUnseen;
};

// Where the blocks of one plane lie, in raster order.
class BlockLayout {
  public:
    BlockLayout() = default;
    BlockLayout(const LumaPlane& plane, int columns, int rows, int blockSize)
        : mColumns(columns),
          mRows(rows),
          mBlockSize(blockSize),
          mLastX(std::max(0, plane.width - blockSize)),
          mLastY(std::max(0, plane.height - blockSize)) {}

    int columns() const { return mColumns; }
    int rows() const { return mRows; }

    bool has(int column, int row) const {
        return column >= 0 && row >= 0 && column < mColumns && row < mRows;
    }
    // The last ones end with the plane, so that every block is whole if the plane has room for it.
    Block block(int column, int row) const {
        return {std::min(column * mBlockSize, mLastX), std::min(row * mBlockSize, mLastY),
                mBlockSize};
    }
    size_t index(int column, int row) const {
        return static_cast<size_t>(row) * static_cast<size_t>(mColumns) +
               static_cast<size_t>(column);
    }

  private:
    int mColumns = 0;
    int mRows = 0;
    int mBlockSize = 0;
    int mLastX = 0;
    int mLastY = 0;
};

// The same blocks, with where each of them was found.
class BlockGrid : public BlockLayout {
  public:
    void reset(const LumaPlane& plane, int columns, int rows, int blockSize) {
        static_cast<BlockLayout&>(*this) = BlockLayout(plane, columns, rows, blockSize);
        mMatches.assign(static_cast<size_t>(columns) * static_cast<size_t>(rows), BlockMatch{});
    }

    BlockMatch& at(int column, int row) { return mMatches[index(column, row)]; }
    const BlockMatch& at(int column, int row) const { return mMatches[index(column, row)]; }

  private:
    std::vector<BlockMatch> mMatches;
};

}  // namespace qoz::host
