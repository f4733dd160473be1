// SPDX-License-Identifier: Apache-2.0
// A client of one component: it sends sources, keeps the component supplied with output buffers of
// the stream's size, and waits with an end. One thread drives it, and on that thread it handles
// what has been returned: in each wait, whenever it queues, and when it is told to look.
#pragma once

#include <functional>
#include <memory>
#include <optional>
#include <string>

#include "client/BufferRing.h"
#include "client/ReturnQueue.h"

namespace qoz::client {

class LiveClient final : public ReturnQueue {
  public:
    static constexpr int32_t kFirstSource = SourceRing::kFirst;

    // Source frames on their way at the same time. It takes two to interpolate; one more keeps the
    // service busy while the client prepares the next.
    static constexpr size_t kDepth = 3;

    explicit LiveClient(size_t sources = SourceRing::kSlots, size_t outputs = 24,
                        const std::string& name = "live")
        : ReturnQueue(name), mName(name), mOutputCount(outputs), mSources(sources) {}

    // False when the component cannot be enabled or started.
    bool start(uint32_t width, uint32_t height, android::ConfigParams params);

    // Of the component there is, or of a new one. Afterwards every buffer that the previous session
    // has dropped is the client's again.
    bool enable(bool diagnostics = false);

    // Sends one frame of this size, painted by `paint` when given (R, G, B, A rows without
    // padding), and queues output buffers. False when no source slot is returned in time.
    bool send(uint32_t width, uint32_t height, int64_t nanoseconds,
              const std::function<void(uint8_t*)>& paint = {},
              std::optional<android::ConfigParams> carried = {});

    // The same in steps: there is a free source, it is taken (SessionFailed: no memory for it), and
    // submitted or put back. False: it was refused, and is free again.
    bool hasSource() const { return mSources.hasFree(); }
    int32_t takeSource(Size size);
    const BufferRef& source(int32_t slot) const { return mSources.buffer(slot); }
    bool submit(int32_t slot, int64_t nanoseconds,
                const std::optional<android::ConfigParams>& carried);
    void putBackSource(int32_t slot) { mSources.putBack(slot); }

    // Queues output buffers of the expected size until `target` are outstanding; by default as many
    // as the frames on their way need. One that is refused is offered again by the next call.
    void queueOutputs(size_t target);
    void queueOutputs() { queueOutputs(usualTarget()); }

    // Makes the buffers for that. Throws SessionFailed; queueOutputs() goes on with those it has.
    void shapeOutputs(size_t target);
    void shapeOutputs() { shapeOutputs(usualTarget()); }
    Size outputSize() const { return mOutputs.size(); }

    // Waits until `holds`, and meanwhile queues output buffers if so `queueing`. False: nothing has
    // moved for `patience`, or the service has died.
    bool await(const std::function<bool()>& holds, bool queueing = true);
    bool waitForSource();  // until send() would find a free source at once
    bool waitForTimestamp(uint64_t microseconds);
    void look() { handle(take()); }

    void disable();
    void stop();     // flush and disable
    void release();  // lets the buffers and the component go

    // Empty when every buffer has been returned once; else what is wrong.
    std::string account() const;
    size_t doubled() const { return ledger().totals().doubled; }  // were not outstanding

    // Called with each frame that comes out, before its buffer is queued again.
    std::function<void(const BufferRef& frame, const ReturnedBuffer& returned)> onFrame;

    // Asked before each wait; none: it lives.
    std::function<bool()> serviceDied = [] { return false; };

    std::chrono::seconds patience{20};

    static bool serviceLives();

    std::shared_ptr<android::VppComponent> vpp;

  private:
    size_t usualTarget() const { return size_t{vpp->outBufReqsPerFrame()} * kDepth; }
    bool handle(const std::vector<ReturnedBuffer>& done);

    const std::string mName;
    const size_t mOutputCount;
    SourceRing mSources;
    OutputRing mOutputs;
    Size mSize;            // of the newest source
    uint64_t mNewest = 0;  // timestamp of a frame that came out
};

}  // namespace qoz::client
