// SPDX-License-Identifier: Apache-2.0
// One session's client at work: hands finished frames on, and keeps account of the frames on their
// way and of the time that they take. Everything here runs on the client's thread.
#pragma once

#include <functional>
#include <optional>
#include <vector>

#include "client/LiveClient.h"
#include "qozplay/media/Frames.h"
#include "qozplay/stream/FrameTracker.h"

namespace qozplay {

using qoz::client::LiveClient;

class Stream {
  public:
    // No wait goes on when nothing has moved for so long.
    static constexpr std::chrono::seconds kPatience{3};

    // Makes the component.
    Stream(const std::string& name, std::vector<FrameSink*> sinks,
           std::function<bool()> serviceDied);

    LiveClient client;
    FrameTracker tracker;

    // Each wait handles what comes meanwhile. False: nothing moved for kPatience, or nothing will
    // any more, as the service has died.
    bool awaitRoom();     // for another source frame
    bool awaitFrames();   // until no source frame is under way
    bool awaitReturns();  // until no buffer is outstanding

    // Hands the source frame over. False: it was refused.
    bool send(int32_t slot, int64_t timestamp, const std::optional<android::ConfigParams>& config);

    bool stopped() const { return mStopped; }  // a sink has enough
    const std::vector<double>& blocked() const { return mBlocked; }
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
    Size mSourceSize;  // of the frame sent last
    bool mStopped = false;
};

}  // namespace qozplay
