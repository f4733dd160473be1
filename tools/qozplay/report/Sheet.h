// SPDX-License-Identifier: Apache-2.0
// A picture of what the processing does: source frames and the frames made between them, side by
// side in time order. One row an interval. Owned by the outputs; frames come on the first session's
// thread, the picture is drawn when that has ended.
#pragma once

#include <deque>
#include <map>
#include <optional>
#include <utility>

#include "qozplay/media/Canvas.h"
#include "qozplay/media/FrameSink.h"

namespace qozplay {

class Sheet final : public FrameSink {
  public:
    static constexpr uint32_t kIntervals = 2;
    using Psnr = std::map<uint64_t, double>;  // microseconds, dB

    // Keeps the frames with timestamps from `window->first` to `window->second`; without a window,
    // or as long as none of these has come, the last ones that come.
    Sheet(std::string title, std::optional<std::pair<uint64_t, uint64_t>> window);

    bool take(const FinishedFrame& frame) override;

    bool reachedWindow() const { return mReached; }

    // `psnr` of frames for which it is known, by timestamp. Throws SessionFailed: no frame came.
    Image draw(const Psnr& psnr = {}) const;

  private:
    struct Cell {
        uint64_t timestamp;
        bool source;
        Image picture;
    };
    using Row = std::vector<const Cell*>;

    std::vector<Row> rows() const;
    static std::string label(const Row& row, size_t column, const Psnr& psnr);
    static void drawCell(const Surface& surface, int32_t x, int32_t y, const Cell& cell,
                         const std::string& label);

    const std::string mTitle;
    const std::optional<std::pair<uint64_t, uint64_t>> mWindow;
    std::deque<Cell> mCells;
    bool mReached = false;
};

}  // namespace qozplay
