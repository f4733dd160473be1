// SPDX-License-Identifier: Apache-2.0
// The frames of one stream on their way: what has gone in, what has come out and how long it took.
// Frames are known by their timestamp in microseconds. Owned by the stream of a session, and used
// on its thread alone.
#pragma once

#include <map>
#include <optional>
#include <vector>

#include "qozplay/media/Types.h"

namespace qozplay {

class FrameTracker {
  public:
    struct Tally {
        uint64_t in = 0;                // source frames that were taken
        uint64_t refused = 0;           // and that were not
        uint64_t source = 0;            // source frames that came out
        uint64_t interpolated = 0;      // interpolated frames that came out
        uint64_t backwards = 0;         // came out with a time not after that of the one before
        uint64_t flushed = 0;           // source frames that a flush cleared away
        uint64_t missing = 0;           // source frames that never came out
        std::vector<double> latencies;  // milliseconds; of source frames, from in to out
    };

    void sent(uint64_t timestamp, Clock::time_point at);
    void refused(uint64_t timestamp);

    // A finished frame; true when it is a source frame itself, false when it has been made.
    bool came(uint64_t timestamp, Clock::time_point at);

    // The service has let go of what it held: frames under way may never come, and nobody waits.
    void flushed();

    // Source frames that are still to come. One that a later frame has overtaken is not waited for.
    size_t underWay() const;

    // Closes the account.
    Tally finish();

  private:
    enum class State { UnderWay, Overtaken, Flushed };
    struct Sent {
        Clock::time_point at;
        State state = State::UnderWay;
    };

    std::map<uint64_t, Sent> mSent;
    std::optional<uint64_t> mLast;
    Tally mTally;
};

}  // namespace qozplay
