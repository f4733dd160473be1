// SPDX-License-Identifier: Apache-2.0
// Where the blocks of one frame went in another, to whole pixels.
#pragma once

#include <host/converter/BlockGrid.h>
#include <host/converter/LumaPyramid.h>

#include <array>
#include <vector>

namespace qoz::host {

// Keeps the grids of one direction from frame to frame, so that no memory is asked for again. For
// one thread.
class BlockSearch {
  public:
    // From coarse to fine. Gives the grid of the full-size level, blocks of kMotionBlock pixels,
    // which stands until the next call and may be improved on in place.
    BlockGrid& search(const LumaPyramid& from, const LumaPyramid& to);

    // The same where the way back is known: a block takes up the vector of the block that `back`,
    // the grid over `to`, leads to its place, and looks around only where that does not fit.
    BlockGrid& searchBack(const LumaPyramid& from, const LumaPyramid& to, const BlockGrid& back);

    void release() { *this = BlockSearch(); }

  private:
    void resetGrids(const LumaPyramid& from);

    std::array<BlockGrid, LumaPyramid::kMaxLevels> mGrids;
    std::vector<BlockMatch> mSeeds;  // what the way back says of each block; unseen: nothing
};

}  // namespace qoz::host
