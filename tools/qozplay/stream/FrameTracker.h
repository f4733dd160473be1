// SPDX-License-Identifier: Apache-2.0
// The frame counts and latencies of one stream.
#pragma once

#include <map>
#include <optional>
#include <vector>

#include "qozplay/media/Types.h"

namespace qozplay {

// Tracks source frames from the process() call that sends them until their output frame is
// returned, and counts the output frames. Frames are identified by their timestamps, in
// microseconds. Owned by the stream of a session and used only on the session's thread.
class FrameTracker {
  public:
    struct Tally {
        uint64_t in = 0;            // source frames that the component took
        uint64_t refused = 0;       // source frames that it refused
        uint64_t source = 0;        // source frames in the output
        uint64_t interpolated = 0;  // interpolated frames in the output
        uint64_t backwards = 0;     // output frames whose timestamp is not after all earlier ones
        uint64_t flushed = 0;       // source frames not in the output because of a flush
        uint64_t missing = 0;       // source frames not in the output for any other reason
        std::vector<double> latencies;  // of source frames, milliseconds
    };

    void sent(uint64_t timestamp, Clock::time_point at);
    void refused(uint64_t timestamp);  // takes back sent()

    // Records an output frame. Returns true for a source frame, false for an interpolated one.
    bool came(uint64_t timestamp, Clock::time_point at);

    // Records a flush, or another event after which the frames that are under way may not come out.
    // They are then no longer expected, but still count as source frames if they come out.
    void flushed();

    // The number of source frames that are still expected. One with an earlier timestamp than a
    // frame that has come out is not: the output is in order, so it will not come out any more.
    size_t underWay() const;

    // Counts the frames that never came out, and returns the totals.
    Tally finish();

  private:
    enum class State { UnderWay, Overtaken, Flushed };
    struct Sent {
        Clock::time_point at;
        State state = State::UnderWay;
    };

    std::map<uint64_t, Sent> mSent;  // source frames that have not come out, by timestamp
    std::optional<uint64_t> mLast;   // the latest timestamp in the output
    Tally mTally;
};

}  // namespace qozplay
