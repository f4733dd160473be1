// SPDX-License-Identifier: Apache-2.0
// A small client for long runs and for tests: it queues sources and output buffers, keeps a ledger
// of them, and follows the stream's size. One thread drives it; the callbacks come on any. The lock
// guards the account of buffers; it is never held across a call of the component.
#pragma once

#include <android-base/thread_annotations.h>

#include <condition_variable>
#include <functional>
#include <memory>
#include <mutex>
#include <optional>
#include <set>
#include <string>

#include "client/BufferRing.h"
#include "client/Ledger.h"

namespace qoz::client {

class LiveClient final : public android::IQOZCallback {
  public:
    static constexpr int32_t kFirstSource = SourceRing::kFirst;

    explicit LiveClient(size_t sources = SourceRing::kSlots, size_t outputs = 24)
        : mOutputCount(outputs), mSources(sources) {}

    // False when the component cannot be enabled or started.
    bool start(uint32_t width, uint32_t height, android::ConfigParams params);

    // Of the component there is, or of a new one. Afterwards every buffer that the previous session
    // has dropped is the client's again.
    bool enable() EXCLUDES(mLock);

    // Sends one frame of this size, painted by `paint` when given (R, G, B, A rows without
    // padding), and keeps the service supplied with output buffers. False when no source slot is
    // returned in time.
    bool send(uint32_t width, uint32_t height, int64_t nanoseconds,
              const std::function<void(uint8_t*)>& paint = {},
              std::optional<android::ConfigParams> carried = {});

    // Queues output buffers of the expected size until `target` are outstanding.
    void queueOutputs(size_t target);
    void queueOutputs() { queueOutputs(size_t{vpp->outBufReqsPerFrame()} * 3); }

    bool waitForSource() EXCLUDES(mLock);  // until send() would find a free source at once
    bool waitForTimestamp(uint64_t microseconds) EXCLUDES(mLock);
    void disable() { vpp->disable(); }
    void stop();  // flush and disable

    // Empty when every buffer has been returned once; else what is wrong.
    std::string account() const EXCLUDES(mLock);

    Ledger ledger() const EXCLUDES(mLock);
    size_t doubled() const { return ledger().totals().doubled; }  // were not outstanding

    // Called on the thread that returns a buffer, before the ledger knows of it.
    std::function<void()> onReturn;

    // Called with each frame that comes out, before its buffer is queued again. The lock is held:
    // the frames come one at a time, and the function calls neither this object nor the component.
    std::function<void(android::GraphicBuffer& frame, uint64_t microseconds)> onFrame;

    static bool serviceLives();

    std::shared_ptr<android::VppComponent> vpp;

  private:
    void onBufferDone(uint32_t port, int32_t slot, uint32_t valid, uint64_t timestamp) override
        EXCLUDES(mLock);
    void onConfigChanged(std::set<uint32_t>) override {}
    std::optional<android::QOZBufferInfo> takeSource(Size size) EXCLUDES(mLock);
    void shapeOutputs(Size expected, size_t count) EXCLUDES(mLock);
    std::optional<android::QOZBufferInfo> takeOutput(size_t target) EXCLUDES(mLock);
    void refused(uint32_t port, int32_t slot) EXCLUDES(mLock);
    void putBack(int32_t slot) REQUIRES(mLock);

    const size_t mOutputCount;
    mutable std::mutex mLock;
    std::condition_variable mReturned;
    SourceRing mSources GUARDED_BY(mLock);
    OutputRing mOutputs GUARDED_BY(mLock);
    Size mSize GUARDED_BY(mLock);  // of the newest source
    Ledger mLedger GUARDED_BY(mLock);
    uint64_t mNewest GUARDED_BY(mLock) = 0;  // timestamp of a valid output
    std::string mWrong GUARDED_BY(mLock);    // what was returned that should not have been
};

}  // namespace qoz::client
