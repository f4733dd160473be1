// SPDX-License-Identifier: Apache-2.0
#include "qozplay/report/Sheet.h"

#include <libyuv.h>

#include <algorithm>
#include <functional>
#include <utility>

namespace qozplay {
namespace {

constexpr int32_t kCellWidth = 480;  // pixels
constexpr int32_t kMargin = 28;
constexpr int32_t kGap = 16;
constexpr int32_t kLabelRoom = 34;
constexpr int32_t kBorder = 3;
constexpr Colour kGround{22, 24, 29};
constexpr Colour kInk{232, 234, 240};
constexpr Colour kSourceColour{92, 200, 130};
constexpr Colour kInterpolatedColour{242, 176, 72};

// Converts an output frame to RGBA at the size of a cell.
Image shrink(const FinishedFrame& frame) {
    const Nv12View& view = frame.picture;
    const auto width = static_cast<int>(view.size.width);
    const auto height = static_cast<int>(view.size.height);
    Image whole(view.size);
    // libyuv has no conversion from NV12 to bytes in the order R, G, B, A. Swapping U and V, and
    // using the matrix made for swapped chroma, exchanges red and blue in its ARGB output.
    const auto& matrix =
        frame.matrix == AVCOL_SPC_BT709 ? libyuv::kYvuH709Constants : libyuv::kYvuI601Constants;
    libyuv::NV21ToARGBMatrix(view.luma, view.stride, view.chroma, view.stride, whole.pixels.data(),
                             static_cast<int>(whole.stride()), &matrix, width, height);
    const int cellHeight = std::clamp(kCellWidth * height / width, 1, 2 * kCellWidth);
    Image cell({kCellWidth, static_cast<uint32_t>(cellHeight)});
    libyuv::ARGBScale(whole.pixels.data(), static_cast<int>(whole.stride()), width, height,
                      cell.pixels.data(), static_cast<int>(cell.stride()), kCellWidth, cellHeight,
                      libyuv::kFilterBox);
    return cell;
}

}  // namespace

bool Sheet::take(const FinishedFrame& frame) {
    if (mWindow && frame.timestamp > mWindow->second) return true;
    const bool inside = mWindow && frame.timestamp >= mWindow->first;
    if (inside && !std::exchange(mReached, true)) mCells.clear();
    mCells.push_back({frame.timestamp, frame.source, shrink(frame)});
    if (inside) return true;
    // Remove the oldest interval if kIntervals remain after it.
    if (std::ranges::count(mCells, true, &Cell::source) <= kIntervals + 1) return true;
    const auto first = std::ranges::find(mCells, true, &Cell::source);
    mCells.erase(mCells.begin(), std::find_if(first + 1, mCells.end(), std::mem_fn(&Cell::source)));
    return true;
}

// Divides the cells into rows. A row begins and ends with a source frame; the last frame of a row
// is also the first one of the next row.
std::vector<Sheet::Row> Sheet::rows() const {
    std::vector<Row> rows;
    for (const Cell& cell : mCells) {
        if (!rows.empty()) rows.back().push_back(&cell);
        if (cell.source) rows.push_back({&cell});
    }
    if (rows.size() > 1 && rows.back().size() == 1) rows.pop_back();
    return rows;
}

// Draws the cell in `column` of a row, with its label and its border, at (x, y).
void Sheet::drawCell(const Surface& page, int32_t x, int32_t y, const Row& row, size_t column,
                     const std::map<uint64_t, double>& psnr) {
    const Cell& cell = *row[column];
    std::string label = cell.source ? "SOURCE" : "INTERPOLATED";
    const bool whole = row.back()->source;  // if not, the number of interpolated frames is unknown
    if (!cell.source && whole) label += format(" %zu/%zu", column, row.size() - 1);
    label += format("  %.3f MS", static_cast<double>(cell.timestamp) / 1000);
    if (psnr.contains(cell.timestamp)) label += format("  %.1f DB", psnr.at(cell.timestamp));
    drawText(page, x, y, 2, label, kInk);
    y += kLabelRoom;
    const Image& picture = cell.picture;
    const auto height = static_cast<int32_t>(picture.size.height);
    fill(page, {x - kBorder, y - kBorder, kCellWidth + 2 * kBorder, height + 2 * kBorder},
         cell.source ? kSourceColour : kInterpolatedColour);
    libyuv::ARGBCopy(picture.pixels.data(), static_cast<int>(picture.stride()),
                     page.at(static_cast<uint32_t>(x), static_cast<uint32_t>(y)),
                     static_cast<int>(page.stride), kCellWidth, height);
}

Image Sheet::draw(const std::map<uint64_t, double>& psnr) const {
    const std::vector<Row> all = rows();
    if (all.empty()) throw SessionFailed("no frame came out that a sheet could show");
    size_t columns = 0;
    for (const Row& row : all)
        columns = std::max(columns, row.size());
    uint32_t cellHeight = 0;
    for (const Cell& cell : mCells)
        cellHeight = std::max(cellHeight, cell.picture.size.height);
    const int32_t stepX = kCellWidth + kGap;
    const int32_t stepY = kLabelRoom + static_cast<int32_t>(cellHeight) + kGap;
    const int32_t width = stepX * static_cast<int32_t>(columns) - kGap + 2 * kMargin;
    const int32_t height = stepY * static_cast<int32_t>(all.size()) - kGap + 2 * kMargin;
    Image page({static_cast<uint32_t>(width), static_cast<uint32_t>(height)});
    fill(page.surface(), {0, 0, width, height}, kGround);
    for (size_t row = 0; row < all.size(); ++row) {
        for (size_t column = 0; column < all[row].size(); ++column) {
            drawCell(page.surface(), kMargin + stepX * static_cast<int32_t>(column),
                     kMargin + stepY * static_cast<int32_t>(row), all[row], column, psnr);
        }
    }
    return page;
}

}  // namespace qozplay
