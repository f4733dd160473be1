// SPDX-License-Identifier: Apache-2.0
#include "qozplay/report/PictureSummary.h"

#include <algorithm>
#include <cmath>
#include <numeric>
#include <utility>

namespace qozplay {
namespace {

using Yuv = PictureSummary::Yuv;

// One plane of a picture: samples that are `step` bytes apart, in rows of `stride` bytes. Each
// sample covers `scale` by `scale` pixels of the picture, the last one of an odd side fewer.
struct Plane {
    const uint8_t* bytes;
    size_t stride;
    size_t step;
    Size picture;
    uint32_t scale;
};

// The samples that one cell covers in one direction. The edge of a cell may lie within a sample, so
// the first and the last sample belong to the cell with a fraction. Without fractions, a hard edge
// in the picture could count for one cell in one plane and for its neighbour in another plane.
struct Span {
    Span(uint32_t side, uint32_t scale, uint32_t index, uint32_t count)
        : begin(double(side) * index / count / scale),
          end(double(side) * (index + 1) / count / scale) {}

    size_t first() const { return static_cast<size_t>(begin); }
    size_t last() const { return static_cast<size_t>(std::ceil(end)) - 1; }
    double share(size_t sample) const {
        const auto from = static_cast<double>(sample);
        return std::min(end, from + 1) - std::max(begin, from);
    }

    const double begin, end;
};

// The mean of the samples in one cell.
double meanOf(const Plane& plane, PictureSummary::Grid grid, uint32_t column, uint32_t row) {
    const Span across(plane.picture.width, plane.scale, column, grid.columns);
    const Span down(plane.picture.height, plane.scale, row, grid.rows);
    double sum = 0;
    for (size_t y = down.first(); y <= down.last(); ++y) {
        const uint8_t* line = plane.bytes + y * plane.stride;
        double ofLine = 0;
        for (size_t x = across.first(); x <= across.last(); ++x) {
            ofLine += across.share(x) * line[x * plane.step];
        }
        sum += down.share(y) * ofLine;
    }
    return sum / ((across.end - across.begin) * (down.end - down.begin));
}

// The means of all three planes in each cell, row by row.
std::vector<Yuv> cellsOf(const std::array<Plane, 3>& planes, PictureSummary::Grid grid) {
    std::vector<Yuv> cells;
    for (uint32_t row = 0; row < grid.rows; ++row) {
        for (uint32_t column = 0; column < grid.columns; ++column) {
            Yuv& cell = cells.emplace_back();
            for (size_t i = 0; i < cell.size(); ++i) {
                cell[i] = meanOf(planes[i], grid, column, row);
            }
        }
    }
    return cells;
}

// Converts full-range RGB to limited-range YUV. The conversion is linear, so that the mean of many
// pixels can be converted instead of each pixel.
Yuv toYuv(const Yuv& rgb, AVColorSpace matrix) {
    const bool high = matrix == AVCOL_SPC_BT709;
    const double red = high ? 0.2126 : 0.299;
    const double blue = high ? 0.0722 : 0.114;
    const double luma = red * rgb[0] + (1 - red - blue) * rgb[1] + blue * rgb[2];
    return {16 + luma * 219 / 255, 128 + (rgb[2] - luma) / (1 - blue) * 112 / 255,
            128 + (rgb[0] - luma) / (1 - red) * 112 / 255};
}

}  // namespace

PictureSummary::Grid PictureSummary::gridFor(Size size) {
    constexpr uint32_t kCell = 32;  // pixels at least
    constexpr uint32_t kMost = 8;
    return {std::clamp(size.width / kCell, 1U, kMost), std::clamp(size.height / kCell, 1U, kMost)};
}

PictureSummary PictureSummary::ofRgba(const qoz::client::LockedPixels& pixels, Size out) {
    const Size size = pixels.size();
    const Grid grid = gridFor({std::min(size.width, out.width), std::min(size.height, out.height)});
    const uint8_t* rgba = pixels.data();
    const size_t stride = pixels.stride() * 4;
    std::vector<Yuv> cells = cellsOf({{{rgba, stride, 4, size, 1},
                                       {rgba + 1, stride, 4, size, 1},
                                       {rgba + 2, stride, 4, size, 1}}},
                                     grid);
    for (Yuv& cell : cells)
        cell = toYuv(cell, usualMatrix(size));
    return {grid, std::move(cells)};
}

PictureSummary PictureSummary::ofNv12(const Nv12View& view, Grid grid) {
    const auto stride = static_cast<size_t>(view.stride);
    return {grid, cellsOf({{{view.luma, stride, 1, view.size, 1},
                            {view.chroma, stride, 2, view.size, 2},
                            {view.chroma + 1, stride, 2, view.size, 2}}},
                          grid)};
}

PictureSummary::Yuv PictureSummary::mean() const {
    Yuv sum{};
    for (const Yuv& cell : mCells) {
        for (size_t i = 0; i < sum.size(); ++i)
            sum[i] += cell[i];
    }
    for (double& plane : sum)
        plane /= static_cast<double>(mCells.size());
    return sum;
}

double PictureSummary::spread() const {
    const double luma = mean()[0];
    const double sum = std::accumulate(
        mCells.begin(), mCells.end(), 0.0,
        [&](double so, const Yuv& cell) { return so + (cell[0] - luma) * (cell[0] - luma); });
    return std::sqrt(sum / static_cast<double>(mCells.size()));
}

PictureSummary::Yuv PictureSummary::farthest(const PictureSummary& other) const {
    Yuv most{};
    for (size_t n = 0; n < std::min(mCells.size(), other.mCells.size()); ++n) {
        for (size_t i = 0; i < most.size(); ++i) {
            most[i] = std::max(most[i], std::abs(mCells[n][i] - other.mCells[n][i]));
        }
    }
    return most;
}

}  // namespace qozplay
