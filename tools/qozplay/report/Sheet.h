// SPDX-License-Identifier: Apache-2.0
// A picture of what the processing does: source frames and the frames made between them, side by
// side in time order. One row an interval. Owned by the outputs; frames come on the first session's
// thread, the picture is drawn when that has ended.
#pragma once

#include <deque>
#include <map>
#include <utility>

#include "qozplay/media/Canvas.h"
#include "qozplay/media/Frames.h"

namespace qozplay {

class Sheet final : public FrameSink {
  public:
    static constexpr uint32_t kIntervals = 2;
    using Window = std::optional<std::pair<uint64_t, uint64_t>>;  // microseconds

    // Keeps the frames with timestamps from `window->first` to `window->second`; without a window,
    // or as long as none of these has come, the last ones that come.
    explicit Sheet(Window window) : mWindow(window) {}

    bool take(const FinishedFrame& frame) override;

    bool reachedWindow() const { return mReached; }

    // `psnr`: dB of frames for which it is known, by timestamp. Throws SessionFailed: no frame
    // came.
    Image draw(const std::map<uint64_t, double>& psnr = {}) const;

  private:
    struct Cell {
        uint64_t timestamp;
        bool source;
        Image picture;
    };
    using Row = std::vector<const Cell*>;

    std::vector<Row> rows() const;
    static void drawCell(const Surface& page, int32_t x, int32_t y, const Row& row, size_t column,
                         const std::map<uint64_t, double>& psnr);

    const Window mWindow;
    std::deque<Cell> mCells;
    bool mReached = false;
};

}  // namespace qozplay
