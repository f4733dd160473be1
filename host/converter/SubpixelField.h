// SPDX-License-Identifier: Apache-2.0
// Measures vectors to fractions of a pixel, starting from the whole pixels of a block search.
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

// The measurements of all blocks. Each number has a plane of its own, with rows of `columns` cells
// and a rim around them. The motion of the rim's cells is so far away that no block takes them for
// neighbours.
//
// xx, xy and yy say how sure a measurement is: leaving the block's own motion by (u, v) costs (xx
// u^2 + 2 xy u v + yy v^2) / 2 per pixel.
struct Evidence {
    // Cells on either side of a row; at least as many as a vector has lanes.
    static constexpr int kRim = 64;

    // Allocates the planes for a grid.
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
    std::vector<float> dx, dy;  // the result, after agreement with the neighbours
};

// Measures the motion of the blocks, in two stages. First, one Gauss-Newton step from the
// displacement of each block gives its own motion and how sure that is in each direction. Then the
// blocks agree with their neighbours, the more so the less sure they are: along an edge, in flat
// areas, or out of the picture. Neighbours that move differently are ignored, so that one moving
// layer does not bend another. Not for use by two threads at once.
class SubpixelField {
  public:
    // Measures all blocks of the grid. Also corrects matches of the grid that are one pixel off.
    void refine(const LumaPlane& from, const LumaPlane& to, BlockGrid* grid);

    // The motion of a block after the last refine().
    Motion at(int column, int row) const {
        const size_t index = mEvidence.at(column, row);
        return {mEvidence.dx[index], mEvidence.dy[index]};
    }

  private:
    Evidence mEvidence;
};

}  // namespace qoz::host
