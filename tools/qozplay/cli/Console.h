// SPDX-License-Identifier: Apache-2.0
// Output to the terminal, and the progress line.
#pragma once

#include <android-base/thread_annotations.h>

#include <iosfwd>
#include <mutex>
#include <optional>

#include "qozplay/media/Types.h"

namespace qozplay {

// The progress of a run.
struct Progress {
    uint64_t framesIn = 0;
    uint64_t framesOut = 0;
    size_t outstanding = 0;          // buffers
    std::optional<uint64_t> length;  // total number of source frames; nullopt if unknown
};

// Returns the progress line, cut to `width` characters. `seconds` is the time since the start.
std::string progressLine(const Progress& progress, double seconds, size_t width);

// Writes texts and the progress line to standard output and standard error, without mixing those of
// different threads: the sessions and the simulator's log call it on their threads. mLock guards
// both streams and is held while they are written.
class Console {
  public:
    // `live` is true if `err` is a terminal; only then is the progress line shown.
    Console(std::ostream& out, std::ostream& err, bool live);

    // Writes to `out`. Returns false if that fails, unless because the reader has closed the pipe.
    bool print(const std::string& text) EXCLUDES(mLock);
    // Writes a line to `err`.
    void report(const std::string& line) EXCLUDES(mLock);

    // Replaces the progress line, at most ten times per second.
    void progress(const Progress& progress) EXCLUDES(mLock);
    void endProgress() EXCLUDES(mLock);

  private:
    void wipe() REQUIRES(mLock);  // removes the progress line

    std::mutex mLock;
    std::ostream& mOut GUARDED_BY(mLock);
    std::ostream& mErr GUARDED_BY(mLock);
    const bool mLive;
    const Clock::time_point mStart;
    bool mShown GUARDED_BY(mLock) = false;
    Clock::time_point mNext GUARDED_BY(mLock);  // earliest time of the next progress line
};

}  // namespace qozplay
