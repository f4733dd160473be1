// SPDX-License-Identifier: Apache-2.0
// The stream of frames of one session.
#pragma once

#include <functional>
#include <optional>
#include <vector>

#include "client/LiveClient.h"
#include "qozplay/media/Frames.h"
#include "qozplay/stream/FrameTracker.h"

namespace qozplay {

using qoz::client::LiveClient;

// Combines the client of a session with the tracking of its frames: passes output frames to the
// sinks and measures latencies and blocking times. Owned by the session; all functions run on the
// session's thread.
class Stream {
  public:
    // The longest time that a wait continues without progress.
    static constexpr std::chrono::seconds kPatience{3};

    // Creates the component. The sinks must exist for longer than the stream.
    Stream(const std::string& name, std::vector<FrameSink*> sinks,
           std::function<bool()> serviceDied);

    LiveClient client;
    FrameTracker tracker;

    // Wait, while handling returned buffers. They return false if there was no progress for
    // kPatience, or if the service has died.
    bool awaitRoom();     // until another source frame can be sent
    bool awaitFrames();   // until no source frame is under way, or a sink wants no more frames
    bool awaitReturns();  // until no buffer is outstanding

    // Sends the source frame in `slot` at `timestamp`, in nanoseconds, with new settings if
    // `config` has any. Returns false if the component refused it.
    bool send(int32_t slot, int64_t timestamp, const std::optional<android::ConfigParams>& config);

    bool stopped() const { return mStopped; }  // true once a sink wants no more frames
    // The duration of process() for each source frame, milliseconds.
    const std::vector<double>& blocked() const { return mBlocked; }
    // The time from the first frame sent to the last one received; 0 without an output frame.
    double seconds() const;
    size_t outstanding() const { return client.ledger().outstanding(); }
    uint64_t framesOut() const { return mFramesOut; }

  private:
    void consume(const qoz::client::BufferRef& buffer, const qoz::client::ReturnedBuffer& done);

    const std::vector<FrameSink*> mSinks;
    std::vector<double> mBlocked;
    std::optional<Clock::time_point> mFirstIn;
    Clock::time_point mLastOut;
    uint64_t mFramesOut = 0;
    Size mSourceSize;  // of the last frame sent
    bool mStopped = false;
};

}  // namespace qozplay
