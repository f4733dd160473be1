// SPDX-License-Identifier: Apache-2.0
// A summary of a picture for the comparison of frames.
#pragma once

#include <array>
#include <vector>

#include "qozplay/media/Frames.h"

namespace qozplay {

// Contains the mean of each plane in the cells of a grid. The same picture has about the same
// summary in every size, so that input frames can be compared with scaled output frames.
class PictureSummary {
  public:
    using Yuv = std::array<double, 3>;  // limited range
    struct Grid {
        uint32_t columns = 1;
        uint32_t rows = 1;
    };

    // Returns a grid whose cells are so large that the filter of a scaler hardly changes their
    // means.
    static Grid gridFor(Size size);

    // Summarises a source frame, by the matrix that the converter uses for it. The grid suits both
    // its size and the size `out` of the output frames.
    static PictureSummary ofRgba(const qoz::client::LockedPixels& pixels, Size out);
    static PictureSummary ofNv12(const Nv12View& view, Grid grid);
    // Returns the summary of a grey picture, with a grid of one cell.
    static PictureSummary flat(double luma) { return PictureSummary({1, 1}, {{luma, 128, 128}}); }

    Grid grid() const { return mGrid; }
    Yuv mean() const;                                 // mean of all cells
    double spread() const;                            // standard deviation of the cells' luma
    Yuv farthest(const PictureSummary& other) const;  // greatest difference of a cell, by plane

  private:
    PictureSummary(Grid grid, std::vector<Yuv> cells) : mGrid(grid), mCells(std::move(cells)) {}

    Grid mGrid;
    std::vector<Yuv> mCells;  // row by row
};

}  // namespace qozplay
