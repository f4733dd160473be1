// SPDX-License-Identifier: Apache-2.0
// Words for the person at the terminal, from several threads, and a line that shows how far it is.
#pragma once

#include <iosfwd>
#include <mutex>
#include <optional>

#include "qozplay/media/Types.h"

namespace qozplay {

// How far a run is.
struct Progress {
    uint64_t framesIn = 0;
    uint64_t framesOut = 0;
    size_t outstanding = 0;          // buffers
    std::optional<uint64_t> length;  // source frames in all; none: nobody knows
};

// One line of at most `width` characters, after `seconds` of work.
std::string progressLine(const Progress& progress, double seconds, size_t width);

class Console {
  public:
    // `live`: `err` is a terminal and shows the progress line.
    Console(std::ostream& out, std::ostream& err, bool live);

    void print(const std::string& text);   // on `out`
    void report(const std::string& line);  // on `err`

    // Replaces the progress line, a few times a second at most.
    void progress(const Progress& progress);
    void endProgress();

  private:
    void wipe();

    std::mutex mLock;
    std::ostream& mOut;
    std::ostream& mErr;
    const bool mLive;
    bool mShown = false;
    Clock::time_point mStart;
    Clock::time_point mNext;
};

}  // namespace qozplay
