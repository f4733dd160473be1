// SPDX-License-Identifier: Apache-2.0
// The picture of --sheet.
#pragma once

#include <deque>
#include <map>
#include <utility>

#include "qozplay/media/Canvas.h"
#include "qozplay/media/Frames.h"

namespace qozplay {

// Shows the result of the processing: source frames and the frames interpolated between them, side
// by side, with one row for each interval between source frames. Owned by Outputs. The first
// session's thread calls take(); the player's thread calls draw() after that thread has ended.
class Sheet final : public FrameSink {
  public:
    static constexpr uint32_t kIntervals = 2;                     // rows
    using Window = std::optional<std::pair<uint64_t, uint64_t>>;  // microseconds

    // Keeps the frames with timestamps from `window->first` to `window->second`. Without a window,
    // or if none of these frames comes out, it keeps the last kIntervals intervals.
    explicit Sheet(Window window) : mWindow(window) {}

    bool take(const FinishedFrame& frame) override;

    bool reachedWindow() const { return mReached; }  // true if a frame of the window has come out

    // Draws the sheet. `psnr` has the PSNR in dB of those frames for which it is known, by
    // timestamp. Throws SessionFailed if no frame has come out.
    Image draw(const std::map<uint64_t, double>& psnr = {}) const;

  private:
    struct Cell {
        uint64_t timestamp;
        bool source;
        Image picture;
    };
    using Row = std::vector<const Cell*>;  // the cells of one interval

    std::vector<Row> rows() const;
    static void drawCell(const Surface& page, int32_t x, int32_t y, const Row& row, size_t column,
                         const std::map<uint64_t, double>& psnr);

    const Window mWindow;
    std::deque<Cell> mCells;
    bool mReached = false;
};

}  // namespace qozplay
