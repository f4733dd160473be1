// SPDX-License-Identifier: Apache-2.0
// A picture in a few figures: the mean of each plane in the cells of a grid. The same picture of
// another size has the same figures, so what went in can be compared with what comes out.
#pragma once

#include <array>
#include <vector>

#include "qozplay/media/Frames.h"

namespace qozplay {

class PictureSummary {
  public:
    using Yuv = std::array<double, 3>;  // of limited range
    struct Grid {
        uint32_t columns = 1;
        uint32_t rows = 1;
    };

    // Cells that are large enough for the filters of a scaler not to show.
    static Grid gridFor(Size size);

    // By the matrix that the converter applies to it.
    // In cells that are large enough in what comes out, too.
    static PictureSummary ofRgba(const qoz::client::LockedPixels& pixels, Size out);
    static PictureSummary ofNv12(const Nv12View& view, Grid grid);
    static PictureSummary flat(double luma) { return PictureSummary({1, 1}, {{luma, 128, 128}}); }

    Grid grid() const { return mGrid; }
    Yuv mean() const;
    double spread() const;                            // standard deviation of the cells' luma
    Yuv farthest(const PictureSummary& other) const;  // largest difference of a cell, by plane

  private:
    PictureSummary(Grid grid, std::vector<Yuv> cells) : mGrid(grid), mCells(std::move(cells)) {}

    Grid mGrid;
    std::vector<Yuv> mCells;  // row by row
};

}  // namespace qozplay
