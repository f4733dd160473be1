// SPDX-License-Identifier: Apache-2.0
#include "qozplay/stream/Stream.h"

#include <utility>

namespace qozplay {

Stream::Stream(const std::string& name, std::vector<FrameSink*> sinks,
               std::function<bool()> serviceDied)
    : client(qoz::client::SourceRing::kSlots, qoz::client::OutputRing::kSlots, name),
      mSinks(std::move(sinks)) {
    client.vpp = std::make_shared<android::VppComponent>();
    client.patience = kPatience;
    client.serviceDied = std::move(serviceDied);
    client.onFrame = [this](const auto& buffer, const auto& done) { consume(buffer, done); };
}

bool Stream::awaitRoom() {
    return client.await(
        [&] { return client.hasSource() && tracker.underWay() < LiveClient::kDepth; });
}

bool Stream::awaitFrames() {
    return client.await([&] { return tracker.underWay() == 0 || mStopped; });
}

bool Stream::awaitReturns() {
    return client.await([&] { return outstanding() == 0; }, false);
}

bool Stream::send(int32_t slot, int64_t timestamp,
                  const std::optional<android::ConfigParams>& config) {
    const auto microseconds = static_cast<uint64_t>(timestamp / 1000);
    mSourceSize = qoz::client::sizeOf(client.source(slot));
    const Clock::time_point start = Clock::now();
    if (!mFirstIn) mFirstIn = start;
    tracker.sent(microseconds, start);
    const bool taken = client.submit(slot, timestamp, config);
    mBlocked.push_back(milliseconds(Clock::now() - start));
    if (!taken) tracker.refused(microseconds);
    return taken;
}

// Records an output frame and passes it to the sinks.
void Stream::consume(const qoz::client::BufferRef& buffer,
                     const qoz::client::ReturnedBuffer& done) {
    mLastOut = done.at;
    ++mFramesOut;
    const bool source = tracker.came(done.timestamp, done.at);
    if (mSinks.empty() || mStopped) return;
    const qoz::client::LockedPixels pixels(buffer, android::GraphicBuffer::USAGE_SW_READ_OFTEN);
    const FinishedFrame frame{done.timestamp, source, pixels.nv12(), usualMatrix(mSourceSize)};
    mStopped = true;  // remains set if a sink throws
    bool more = true;
    for (FrameSink* sink : mSinks)
        more = sink->take(frame) && more;
    mStopped = !more;
}

double Stream::seconds() const {
    if (!mFirstIn || mFramesOut == 0) return 0;
    return milliseconds(mLastOut - *mFirstIn) / 1000;
}

}  // namespace qozplay
