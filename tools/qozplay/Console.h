// Words for the person at the terminal, from several threads, and a line that shows how far it is.
#pragma once

#include "Basics.h"

#include <deque>
#include <iosfwd>
#include <mutex>
#include <vector>

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

    // While something else has the terminal, lines are kept, the last thousand, and printed at the
    // end.
    void hold();
    void release();
    std::vector<std::string> lastHeld(size_t count) const;

  private:
    void wipe();
    void keep(const std::string& line);

    mutable std::mutex mLock;
    std::ostream& mOut;
    std::ostream& mErr;
    const bool mLive;
    bool mShown = false;
    bool mHolding = false;
    std::deque<std::string> mHeld;
    uint64_t mForgotten = 0;
    Clock::time_point mStart;
    Clock::time_point mNext;
};

}  // namespace qozplay
