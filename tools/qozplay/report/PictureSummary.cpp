// SPDX-License-Identifier: Apache-2.0
#include "qozplay/report/PictureSummary.h"

#include <algorithm>
#include <cmath>
#include <numeric>
#include <utility>

namespace qozplay {
namespace {

using Yuv = PictureSummary::Yuv;

// Bytes that lie `step` apart, in rows of `stride` bytes.
struct Plane {
    const uint8_t* bytes;
    size_t stride;
    size_t step;
    Size size;
};

double meanOf(const Plane& plane, PictureSummary::Grid grid, uint32_t column, uint32_t row) {
    const auto edge = [](uint32_t side, uint32_t index, uint32_t count) {
        return static_cast<uint32_t>(uint64_t{side} * index / count);
    };
    const uint32_t left = edge(plane.size.width, column, grid.columns);
    const uint32_t right = std::max(edge(plane.size.width, column + 1, grid.columns), left + 1);
    const uint32_t top = edge(plane.size.height, row, grid.rows);
    const uint32_t bottom = std::max(edge(plane.size.height, row + 1, grid.rows), top + 1);
    uint64_t sum = 0;
    for (uint32_t y = top; y < bottom; ++y) {
        const uint8_t* line = plane.bytes + y * plane.stride;
        for (uint32_t x = left; x < right; ++x) {
            sum += line[x * plane.step];
        }
    }
    return static_cast<double>(sum) / (static_cast<double>(right - left) * (bottom - top));
}

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

// Full-range RGB as limited-range YUV. It is linear, so the mean of many pixels may go through it.
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
    constexpr uint32_t kCell = 16;  // pixels at least
    constexpr uint32_t kMost = 8;
    return {std::clamp(size.width / kCell, 1U, kMost), std::clamp(size.height / kCell, 1U, kMost)};
}

PictureSummary PictureSummary::ofRgba(const uint8_t* rgba, size_t stride, Size size) {
    const Grid grid = gridFor(size);
    std::vector<Yuv> cells = cellsOf(
        {{{rgba, stride, 4, size}, {rgba + 1, stride, 4, size}, {rgba + 2, stride, 4, size}}},
        grid);
    for (Yuv& cell : cells) {
        cell = toYuv(cell, converterMatrix(size));
    }
    return {grid, std::move(cells)};
}

PictureSummary PictureSummary::ofNv12(const Nv12View& view, Grid grid) {
    const auto stride = static_cast<size_t>(view.stride);
    const Size half{(view.size.width + 1) / 2, (view.size.height + 1) / 2};
    return {grid, cellsOf({{{view.luma, stride, 1, view.size},
                            {view.chroma, stride, 2, half},
                            {view.chroma + 1, stride, 2, half}}},
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
