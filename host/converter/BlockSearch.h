// SPDX-License-Identifier: Apache-2.0
// Block matching: finds for each block of one frame its displacement in another frame, to whole
// pixels. The search starts on the smallest plane of a pyramid and is refined from level to level.
#pragma once

#include <host/converter/BlockGrid.h>
#include <host/converter/LumaPyramid.h>

#include <array>
#include <vector>

namespace qoz::host {

// The block search of one direction. It keeps its grids from frame to frame, so that frames of the
// same size need no new memory. Not for use by two threads at once.
class BlockSearch {
  public:
    // Searches from the coarsest level to the full size. Returns the grid of the full-size level,
    // with blocks of kMotionBlock pixels. The grid is valid until the next call, and the caller may
    // improve it in place.
    BlockGrid& search(const LumaPyramid& from, const LumaPyramid& to);

    // Searches the reverse direction when `back`, the grid of the search from `to` to `from`, is
    // known. Each block first tries the reversed vector of the block that `back` displaces to its
    // place. Only if that does not fit does it try its neighbours' vectors and single steps. This
    // is much cheaper than search().
    BlockGrid& searchBack(const LumaPyramid& from, const LumaPyramid& to, const BlockGrid& back);

    void release() { *this = BlockSearch(); }

  private:
    // Lays a grid over each level of the pyramid.
    void resetGrids(const LumaPyramid& from);

    std::array<BlockGrid, LumaPyramid::kMaxLevels> mGrids;
    std::vector<BlockMatch> mSeeds;  // the reversed match for each block; kUnseen: there is none
};

}  // namespace qoz::host
