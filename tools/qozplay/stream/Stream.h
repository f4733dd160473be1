// SPDX-License-Identifier: Apache-2.0
// The buffers of one session at work: queues output buffers, hands finished frames on, waits with
// an end. Everything here runs on the client's thread.
#pragma once

#include <qoz/VppComponent.h>

#include <functional>
#include <memory>
#include <optional>
#include <vector>

#include "client/BufferRing.h"
#include "client/ReturnQueue.h"
#include "qozplay/media/Frames.h"
#include "qozplay/stream/FrameTracker.h"

namespace qozplay {

using qoz::client::BufferRef;
using qoz::client::OutputRing;
using qoz::client::ReturnedBuffer;
using qoz::client::ReturnQueue;
using qoz::client::SourceRing;

class Stream {
  public:
    // Source frames on their way at the same time. It takes two to interpolate; one more keeps the
    // service busy while the client prepares the next.
    static constexpr size_t kDepth = 3;

    // No wait goes on when nothing has moved for so long.
    static constexpr std::chrono::seconds kPatience{3};

    Stream(std::shared_ptr<android::VppComponent> vpp, ReturnQueue& returns,
           std::vector<FrameSink*> sinks, std::function<bool()> serviceDied);

    // For sources of this size from now on: takes over the output size and the number of output
    // buffers per frame that the component has now.
    void follow(Size source);

    // Keeps as many output buffers with the component as the frames under way need.
    void queueOutputs();

    // Each wait handles what comes meanwhile. False: nothing moved for kPatience, or nothing will
    // any more, as the service has died.
    bool awaitRoom();     // for another source frame
    bool awaitFrames();   // until no source frame is under way
    bool awaitReturns();  // until no buffer is outstanding
    void look();          // the same without waiting

    // A free source buffer; awaitRoom() has found it.
    int32_t takeSource(Size size) { return mSources.take(size); }
    const BufferRef& source(int32_t slot) const { return mSources.buffer(slot); }
    void putBackSource(int32_t slot) { mSources.putBack(slot); }

    // Hands the source frame over. False: it was refused.
    bool send(int32_t slot, int64_t timestamp, const std::optional<android::ConfigParams>& config);

    bool serviceDied() const { return mServiceDied(); }
    bool stopped() const { return mStopped; }  // a sink has enough
    Size outputSize() const { return mOutputs.size(); }
    FrameTracker& tracker() { return mTracker; }
    const std::vector<double>& blocked() const { return mBlocked; }
    double seconds() const;
    size_t outstanding() const { return mReturns.outstanding(); }
    uint64_t framesOut() const { return mFramesOut; }

    // Lets the buffers and the component go.
    void clear();

  private:
    bool awaitThat(const std::function<bool()>& holds);
    bool handle(const std::vector<ReturnedBuffer>& done);
    void consume(const ReturnedBuffer& done);

    std::shared_ptr<android::VppComponent> mVpp;
    ReturnQueue& mReturns;
    const std::vector<FrameSink*> mSinks;
    const std::function<bool()> mServiceDied;
    FrameTracker mTracker;
    OutputRing mOutputs;
    SourceRing mSources;
    size_t mWanted = 0;  // output buffers to have with the component
    std::vector<double> mBlocked;
    std::optional<Clock::time_point> mFirstIn;
    Clock::time_point mLastOut;
    uint64_t mFramesOut = 0;
    Size mSourceSize;
    bool mStopped = false;
};

}  // namespace qozplay
