// SPDX-License-Identifier: Apache-2.0
// A complete client of one component, for tests, benches and the player.
#pragma once

#include <functional>
#include <memory>
#include <optional>
#include <string>

#include "client/BufferRing.h"
#include "client/ReturnQueue.h"

namespace qoz::client {

// Sends source frames, keeps the component supplied with output buffers of the expected size, and
// waits for results with a limit. It owns its buffers and shares the component. One thread calls
// all of its functions. Buffers that other threads return wait in the ReturnQueue until that thread
// handles them: in send(), queueOutputs(), await(), look() and disable().
class LiveClient final : public ReturnQueue {
  public:
    static constexpr int32_t kFirstSource = SourceRing::kFirst;

    // The number of source frames that are under way at the same time. Interpolation needs two; a
    // third keeps the service busy while the client prepares the next one.
    static constexpr size_t kDepth = 3;

    // `sources` and `outputs` are the greatest numbers of source and output buffers; `name` is the
    // name of the session.
    explicit LiveClient(size_t sources = SourceRing::kSlots, size_t outputs = 24,
                        const std::string& name = "live")
        : ReturnQueue(name), mName(name), mOutputCount(outputs), mSources(sources) {}

    // Enables and configures the component. Returns false if it cannot be enabled or started.
    bool start(uint32_t width, uint32_t height, android::ConfigParams params);

    // Begins a session, with a new component if there is none, and returns the component's result.
    // Releases this client's buffers of the previous session, even those that were never returned.
    bool enable(bool diagnostics = false);

    // Sends one source frame and queues output buffers. `paint` fills in the pixels: bytes in the
    // order R, G, B, A, in rows without padding. Without it the buffer keeps its contents.
    // `carried` are the settings that the frame carries, see QOZBufferInfo::config. Returns false
    // if no source slot becomes free in time. The result is true even if the frame was refused, or
    // skipped because SessionFailed was thrown: by the allocation or the locking of its buffer, or
    // by `paint`. Any other exception of `paint` leaves this function. The slot of a frame that was
    // not sent is free.
    bool send(uint32_t width, uint32_t height, int64_t nanoseconds,
              const std::function<void(uint8_t*)>& paint = {},
              std::optional<android::ConfigParams> carried = {});

    // The steps of send(), for a client that fills in the pixels itself. takeSource() needs a free
    // source and throws SessionFailed on allocation failure. The slot must then be passed to
    // submit() or to putBackSource(). submit() returns false if the component refused the frame.
    // The slot is then free, unless the component has returned it nevertheless: in that case it
    // becomes free when the return is handled.
    bool hasSource() const { return mSources.hasFree(); }
    int32_t takeSource(Size size);
    const BufferRef& source(int32_t slot) const { return mSources.buffer(slot); }
    bool submit(int32_t slot, int64_t nanoseconds,
                const std::optional<android::ConfigParams>& carried);
    void putBackSource(int32_t slot) { mSources.putBack(slot); }

    // Handles returned buffers, then queues output buffers of the expected size until `target` are
    // outstanding; by default as many as kDepth source frames need. A buffer that is refused is
    // queued again by a later attempt.
    void queueOutputs(size_t target);
    void queueOutputs() { queueOutputs(usualTarget()); }

    // Allocates the buffers that queueOutputs() needs. Throws SessionFailed if it cannot;
    // queueOutputs(), which calls it, then uses the buffers that there are.
    void shapeOutputs(size_t target);
    void shapeOutputs() { shapeOutputs(usualTarget()); }
    Size outputSize() const { return mOutputs.size(); }

    // Handles returned buffers until `holds` returns true; if `queueing` is set, queues output
    // buffers meanwhile. Returns false if `patience` passes without progress, or if the service has
    // died. Progress is the return of a source buffer or of an output buffer with a frame.
    bool await(const std::function<bool()>& holds, bool queueing = true);
    // Waits until a source is free, or until a frame with this timestamp or a later one has been
    // returned; the results are those of await().
    bool waitForSource();
    bool waitForTimestamp(uint64_t microseconds);
    // Handles the buffers that have been returned so far, without waiting.
    void look() { handle(take()); }

    void disable();
    void stop();     // flushes and disables the component
    void release();  // releases the buffers and this client's reference to the component

    // Returns an empty text if every queued buffer has been returned exactly once, else a sentence
    // about the difference.
    std::string account() const;
    size_t doubled() const { return ledger().totals().doubled; }

    // Called on the client's thread for each returned output buffer with a frame, before the buffer
    // becomes free. May be empty. An exception that it throws leaves the function that handles the
    // buffers, once all of them have been handled.
    std::function<void(const BufferRef& frame, const ReturnedBuffer& returned)> onFrame;

    // Called by await() before each wait; returns true if the service has died. Must not be empty.
    std::function<bool()> serviceDied = [] { return false; };

    // The longest time that await() waits without progress.
    std::chrono::seconds patience{20};

    // Returns true if a VPP service is registered.
    static bool serviceLives();

    std::shared_ptr<android::VppComponent> vpp;

  private:
    // The number of output buffers that kDepth source frames need.
    size_t usualTarget() const { return size_t{vpp->outBufReqsPerFrame()} * kDepth; }
    // Puts the slot back if it throws.
    void paintSource(int32_t slot, const std::function<void(uint8_t*)>& paint);
    bool handle(const std::vector<ReturnedBuffer>& done);
    void frameCame(const ReturnedBuffer& frame);

    const std::string mName;
    const size_t mOutputCount;
    SourceRing mSources;
    OutputRing mOutputs;
    Size mSize;            // of the source that was taken last
    uint64_t mNewest = 0;  // the latest timestamp of a returned frame, microseconds
};

}  // namespace qoz::client
