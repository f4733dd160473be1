// SPDX-License-Identifier: Apache-2.0
// Vectors to a fraction of a pixel, from the whole pixels of a block search.
#pragma once

#include <host/converter/BlockSearch.h>
#include <host/converter/LumaPyramid.h>

#include <vector>

namespace qoz::host {

// A vector in pixels.
struct Motion {
    float dx = 0;
    float dy = 0;
};

// One step of Gauss and Newton from each block's displacement says where between pixels its
// likeness is, and how surely, in each direction. Blocks then agree with their neighbours as far as
// they are unsure: along an edge, in what is flat, out of the picture. Neighbours that move
// otherwise count for nothing, so that one layer does not bend another.
class SubpixelField {
  public:
    // One vector a block, in raster order; stands until the next call. Matches a pixel off are put
    // right.
    const std::vector<Motion>& refine(const LumaPlane& from, const LumaPlane& to, BlockGrid* grid);

  private:
    // 1/2 xx u^2 + ... : how dear it is to leave `own`, per pixel of the block.
    struct Evidence {
        Motion own;
        float xx = 0;
        float xy = 0;
        float yy = 0;
    };

    static bool step(const LumaPlane& from, const LumaPlane& to, const Block& block,
                     Displacement displacement, Evidence* evidence);
    static Evidence measure(const LumaPlane& from, const LumaPlane& to, const Block& block,
                            BlockMatch* match);
    Motion agree(int column, int row, const BlockGrid& grid) const;

    std::vector<Evidence> mEvidence;
    std::vector<Motion> mMotion;
};

}  // namespace qoz::host
