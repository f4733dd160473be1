// SPDX-License-Identifier: Apache-2.0
// The grid of blocks of one plane, and the match of each block in another plane.
#pragma once

#include <host/converter/Block.h>
#include <host/converter/LumaPyramid.h>

#include <algorithm>
#include <cstddef>
#include <vector>

namespace qoz::host {

// The largest displacement of a vector in each direction, in pixels of the source.
constexpr int kMaxDisplacement = 120;

// The match of a block in another plane: its displacement and the difference there, a sum of
// absolute differences over the block.
struct BlockMatch {
    Displacement displacement;
    uint32_t difference = kUnseen;
};

// The positions of the blocks of one plane, in raster order.
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
    // The last block of a row or column ends with the plane, so that every block is whole if the
    // plane is at least one block large.
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

// The layout with the match of each block.
class BlockGrid : public BlockLayout {
  public:
    // Lays the grid over a plane; all blocks are without a match then. Throws std::bad_alloc if
    // memory cannot be allocated.
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
