// SPDX-License-Identifier: Apache-2.0
#include "qozplay/report/Sheet.h"

#include <libyuv.h>

#include <algorithm>
#include <functional>
#include <utility>

namespace qozplay {
namespace {

constexpr uint32_t kCellWidth = 480;  // pixels
constexpr int32_t kMargin = 28;
constexpr int32_t kGap = 16;
constexpr int32_t kTitleDot = 3;
constexpr int32_t kLabelDot = 2;
constexpr int32_t kLabelRoom = 34;
constexpr int32_t kBorder = 3;
constexpr Colour kFaint{138, 144, 156};
constexpr Colour kSourceColour{92, 200, 130};
constexpr Colour kInterpolatedColour{242, 176, 72};

Image shrink(const FinishedFrame& frame) {
    const Nv12View& view = frame.picture;
    const auto width = static_cast<int>(view.size.width);
    const auto height = static_cast<int>(view.size.height);
    Image whole(view.size);
    // The scheme's name for R before B is that of the U and V that would swap them.
    const auto& matrix =
        frame.matrix == AVCOL_SPC_BT709 ? libyuv::kYvuH709Constants : libyuv::kYvuI601Constants;
    libyuv::NV21ToARGBMatrix(view.luma, view.stride, view.chroma, view.stride, whole.pixels.data(),
                             static_cast<int>(whole.stride()), &matrix, width, height);
    const uint32_t cellHeight =
        std::clamp(kCellWidth * view.size.height / view.size.width, 1U, 2 * kCellWidth);
    Image cell({kCellWidth, cellHeight});
    libyuv::ARGBScale(whole.pixels.data(), static_cast<int>(whole.stride()), width, height,
                      cell.pixels.data(), static_cast<int>(cell.stride()), kCellWidth,
                      static_cast<int>(cellHeight), libyuv::kFilterBox);
    return cell;
}

}  // namespace

Sheet::Sheet(std::string title, std::optional<std::pair<uint64_t, uint64_t>> window)
    : mTitle(std::move(title)), mWindow(window) {}

bool Sheet::take(const FinishedFrame& frame) {
    if (mWindow && frame.timestamp > mWindow->second) return true;
    const bool inside = mWindow && frame.timestamp >= mWindow->first;
    if (inside && !std::exchange(mReached, true)) mCells.clear();
    mCells.push_back({frame.timestamp, frame.source, shrink(frame)});
    if (inside) return true;
    // The oldest interval goes once those after it suffice.
    if (std::ranges::count(mCells, true, &Cell::source) <= kIntervals + 1) return true;
    const auto first = std::ranges::find(mCells, true, &Cell::source);
    mCells.erase(mCells.begin(), std::find_if(first + 1, mCells.end(), std::mem_fn(&Cell::source)));
    return true;
}

// Each row runs from a source frame to the next, which begins the row after it as well.
std::vector<Sheet::Row> Sheet::rows() const {
    std::vector<Row> rows;
    for (const Cell& cell : mCells) {
        if (!rows.empty()) rows.back().push_back(&cell);
        if (cell.source) rows.push_back({&cell});
    }
    if (rows.size() > 1 && rows.back().size() == 1) rows.pop_back();
    return rows;
}

std::string Sheet::label(const Row& row, size_t column, const Psnr& psnr) {
    const Cell& cell = *row[column];
    std::string text = cell.source ? "SOURCE" : "INTERPOLATED";
    const bool whole = row.back()->source;  // else nobody knows how many steps there are
    if (!cell.source && whole) text += format(" %zu/%zu", column, row.size() - 1);
    text += format("  %.3f MS", static_cast<double>(cell.timestamp) / 1000);
    const auto known = psnr.find(cell.timestamp);
    if (known != psnr.end()) text += format("  %.1f DB", known->second);
    return text;
}

void Sheet::drawCell(const Surface& surface, int32_t x, int32_t y, const Cell& cell,
                     const std::string& label) {
    const Colour colour = cell.source ? kSourceColour : kInterpolatedColour;
    const Box frame{x - kBorder, y + kLabelRoom - kBorder,
                    static_cast<int32_t>(cell.picture.size.width) + 2 * kBorder,
                    static_cast<int32_t>(cell.picture.size.height) + 2 * kBorder};
    fill(surface, {x, y, 14, 14}, colour);
    drawText(surface, x + 24, y, kLabelDot, label, kInk);
    outline(surface, frame, kBorder, colour);
    paste(surface, x, y + kLabelRoom, cell.picture);
}

Image Sheet::draw(const Psnr& psnr) const {
    const std::vector<Row> all = rows();
    if (all.empty()) throw SessionFailed("no frame came out that a sheet could show");
    size_t columns = 0;
    uint32_t cellHeight = 0;
    for (const Row& row : all) {
        columns = std::max(columns, row.size());
        for (const Cell* cell : row) {
            cellHeight = std::max(cellHeight, cell->picture.size.height);
        }
    }
    const int32_t stepX = static_cast<int32_t>(kCellWidth) + kGap;
    const int32_t stepY = kLabelRoom + static_cast<int32_t>(cellHeight) + 2 * kGap;
    const int32_t head = kMargin + textHeight(kTitleDot) + kMargin;
    const int32_t width = std::max(2 * kMargin + stepX * static_cast<int32_t>(columns) - kGap,
                                   2 * kMargin + textWidth(mTitle, kTitleDot));
    const int32_t height = head + stepY * static_cast<int32_t>(all.size()) + kGap;
    Image page({static_cast<uint32_t>(width), static_cast<uint32_t>(height)});
    const Surface surface = page.surface();
    fill(surface, {0, 0, width, height}, kGround);
    drawText(surface, kMargin, kMargin, kTitleDot, mTitle, kFaint);
    for (size_t r = 0; r < all.size(); ++r) {
        for (size_t c = 0; c < all[r].size(); ++c) {
            drawCell(surface, kMargin + stepX * static_cast<int32_t>(c),
                     head + stepY * static_cast<int32_t>(r), *all[r][c], label(all[r], c, psnr));
        }
    }
    return page;
}

}  // namespace qozplay
