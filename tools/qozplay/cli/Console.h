// Words for the person at the terminal, from several threads, and a line that shows how far it is.
#pragma once

#include "qozplay/media/Types.h"

#include <iosfwd>
#include <mutex>

namespace qozplay {

class Console {
  public:
    // `live`: `err` is a terminal and shows the progress line.
    Console(std::ostream& out, std::ostream& err, bool live);

    void print(const std::string& text);   // on `out`
    void report(const std::string& line);  // on `err`

    // Replaces the progress line, a few times a second at most.
    void progress(uint64_t framesIn, uint64_t framesOut, size_t inFlight);
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
