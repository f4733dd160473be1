// SPDX-License-Identifier: Apache-2.0
// Vectors to a fraction of a pixel, from the whole pixels of a block search.
#pragma once

#include <host/converter/BlockGrid.h>
#include <host/converter/LumaPyramid.h>

#include <vector>

namespace qoz::host {

// A vector in pixels.
struct Motion {
    float dx = 0;
    float dy = 0;
};

// What the blocks of a field say of their motion, each number in a plane of its own: rows of
// columns(), with a rim whose motion is so far off that it is nobody's neighbour.
//
// 1/2 xx u^2 + ... is how dear it is to leave the own motion by (u, v), per pixel of the block.
struct Evidence {
    static constexpr int kRim = 64;  // cells on either side of a row; a vector's lanes at most

    void reset(int columns, int rows);
    size_t at(int column, int row) const {
        return static_cast<size_t>(row + 1) * static_cast<size_t>(stride) +
               static_cast<size_t>(column + kRim);
    }

    int columns = 0;
    int rows = 0;
    int stride = 0;
    std::vector<float> ownX, ownY;
    std::vector<float> xx, xy, yy;
    std::vector<float> dx, dy;  // what the neighbours have agreed on
};

// One step of Gauss and Newton from each block's displacement says where between pixels its
// likeness is, and how surely, in each direction. Blocks then agree with their neighbours as far as
// they are unsure: along an edge, in what is flat, out of the picture. Neighbours that move
// otherwise count for nothing, so that one layer does not bend another.
class SubpixelField {
  public:
    // Matches a pixel off are put right.
    void refine(const LumaPlane& from, const LumaPlane& to, BlockGrid* grid);

    // Of the last refine().
    Motion at(int column, int row) const {
        const size_t index = mEvidence.at(column, row);
        return {mEvidence.dx[index], mEvidence.dy[index]};
    }

  private:
    Evidence mEvidence;
};

}  // namespace qoz::host
