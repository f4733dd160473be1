// SPDX-License-Identifier: Apache-2.0
#include "qozplay/stream/Stream.h"

#include <algorithm>
#include <utility>

namespace qozplay {
namespace {

using android::GraphicBuffer;
using qoz::client::kOutputPort;
using qoz::client::kSourcePort;

// Beyond those with the component: the one being read here and one on its way between.
constexpr size_t kSpareOutputs = 2;

// A buffer that came back without a frame is offered again after this, not at once: a service that
// refuses everything would make that an endless loop.
constexpr std::chrono::milliseconds kRetry{50};

}  // namespace

Stream::Stream(std::shared_ptr<android::VppComponent> vpp, ReturnQueue& returns,
               std::vector<FrameSink*> sinks, std::function<bool()> serviceDied)
    : mVpp(std::move(vpp)),
      mReturns(returns),
      mSinks(std::move(sinks)),
      mServiceDied(std::move(serviceDied)) {}

void Stream::follow(Size source) {
    mSourceSize = source;
    const Size size{mVpp->expectedOutputWidth(), mVpp->expectedOutputHeight()};
    mWanted = mVpp->outBufReqsPerFrame() * kDepth;
    mOutputs.reshape(size, mWanted + kSpareOutputs);
}

void Stream::queueOutputs() {
    while (mReturns.outstanding(kOutputPort) < mWanted) {
        const std::optional<int32_t> slot = mOutputs.take();
        if (!slot) return;
        android::QOZBufferInfo output;
        output.slot = *slot;
        output.buffer = mOutputs.buffer(*slot);
        mReturns.queue(kOutputPort, *slot);
        const qoz::host::TraceSlice slice("process (output)");
        if (mVpp->process(nullptr, &output) == 0) continue;
        if (mReturns.refuse(kOutputPort, *slot)) mOutputs.putBack(*slot);
        return;
    }
}

bool Stream::awaitThat(const std::function<bool()>& holds) {
    Clock::time_point end = Clock::now() + kPatience;
    while (!holds()) {
        if (mServiceDied()) return false;
        const std::vector<ReturnedBuffer> done =
            mReturns.take(std::min(end, Clock::now() + kRetry));
        const bool moved = handle(done);
        const Clock::time_point now = Clock::now();
        if (moved) end = now + kPatience;
        if (now >= end) return false;
        if (moved || done.empty()) queueOutputs();
    }
    return true;
}

bool Stream::awaitRoom() {
    return awaitThat([&] { return mSources.hasFree() && mTracker.underWay() < kDepth; });
}

bool Stream::awaitFrames() {
    return awaitThat([&] { return mTracker.underWay() == 0 || mStopped; });
}

bool Stream::awaitReturns() {
    mWanted = 0;
    return awaitThat([&] { return mReturns.outstanding() == 0; });
}

void Stream::look() {
    handle(mReturns.take());
}

bool Stream::send(int32_t slot, int64_t timestamp,
                  const std::optional<android::ConfigParams>& config) {
    const auto microseconds = static_cast<uint64_t>(timestamp / 1000);
    std::vector<android::QOZBufferInfo> packet(1);
    packet[0] = {slot, mSources.buffer(slot), android::Fence::NO_FENCE, timestamp, config};
    const Clock::time_point start = Clock::now();
    if (!mFirstIn) mFirstIn = start;
    mTracker.sent(microseconds, start);
    mReturns.queue(kSourcePort, slot);
    const qoz::host::TraceSlice slice("process");
    mReturns.trace().sent(slot, microseconds);
    const bool taken = mVpp->process(&packet, nullptr) == 0;
    mBlocked.push_back(milliseconds(Clock::now() - start));
    if (!taken) mTracker.refused(microseconds);
    if (!taken && mReturns.refuse(kSourcePort, slot)) mSources.putBack(slot);
    return taken;
}

// True when something moved: an output without a frame is no sign of life.
bool Stream::handle(const std::vector<ReturnedBuffer>& done) {
    bool moved = false;
    for (const ReturnedBuffer& one : done) {
        if (one.port == kSourcePort) {
            mSources.putBack(one.slot);
            moved = true;
            continue;
        }
        if (one.valid) {
            consume(one);
            moved = true;
        }
        mOutputs.putBack(one.slot);
    }
    return moved;
}

void Stream::consume(const ReturnedBuffer& done) {
    mLastOut = done.at;
    ++mFramesOut;
    const bool source = mTracker.came(done.timestamp, done.at);
    if (mSinks.empty() || mStopped) return;
    const qoz::client::LockedPixels pixels(mOutputs.buffer(done.slot),
                                           GraphicBuffer::USAGE_SW_READ_OFTEN);
    const FinishedFrame frame{done.timestamp, source, pixels.nv12(), usualMatrix(mSourceSize)};
    mStopped = true;  // for the calls, so that it stays set if one of them throws
    bool more = true;
    for (FrameSink* sink : mSinks)
        more = sink->take(frame) && more;
    mStopped = !more;
}

double Stream::seconds() const {
    if (!mFirstIn || mFramesOut == 0) return 0;
    return milliseconds(mLastOut - *mFirstIn) / 1000;
}

void Stream::clear() {
    mOutputs.clear();
    mSources.clear();
    mVpp.reset();
}

}  // namespace qozplay
