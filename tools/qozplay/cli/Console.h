// SPDX-License-Identifier: Apache-2.0
// Words for the person at the terminal, from several threads, and a line that shows how far it is.
#pragma once

#include <android-base/thread_annotations.h>

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

    // On `out`. False: it cannot be written, by another reason than that its reader has gone.
    bool print(const std::string& text) EXCLUDES(mLock);
    void report(const std::string& line) EXCLUDES(mLock);  // on `err`

    // Replaces the progress line, a few times a second at most.
    void progress(const Progress& progress) EXCLUDES(mLock);
    void endProgress() EXCLUDES(mLock);

  private:
    void wipe() REQUIRES(mLock);

    std::mutex mLock;
    std::ostream& mOut GUARDED_BY(mLock);
    std::ostream& mErr GUARDED_BY(mLock);
    const bool mLive;
    const Clock::time_point mStart;
    bool mShown GUARDED_BY(mLock) = false;
    Clock::time_point mNext GUARDED_BY(mLock);  // when the line may change again
};

}  // namespace qozplay
