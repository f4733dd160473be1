// SPDX-License-Identifier: Apache-2.0
// A small client for long runs and for tests: it queues sources and output buffers, keeps a ledger
// of them, and follows the stream's size. One thread drives it; the callbacks come on any.
#pragma once

#include <condition_variable>
#include <functional>
#include <memory>
#include <mutex>
#include <optional>
#include <set>
#include <string>
#include <vector>

#include "client/Ledger.h"
#include "client/Pixels.h"

namespace qoz::client {

class LiveClient final : public android::IQOZCallback {
  public:
    static constexpr int32_t kFirstSource = 100;  // no slot stands for a source and an output
    // One to paint, one to convert, one that is the reference frame, and one to spare.
    static constexpr size_t kSources = 4;

    explicit LiveClient(size_t sources = kSources, size_t outputs = 24)
        : mSources(sources), mOutputs(outputs) {}

    // False when the component cannot be enabled or started.
    bool start(uint32_t width, uint32_t height, android::ConfigParams params);

    // Of the component there is, or of a new one. Afterwards every buffer that the previous session
    // has dropped is the client's again.
    bool enable();

    // Sends one frame of this size, painted by `paint` when given (R, G, B, A rows without
    // padding), and keeps the service supplied with output buffers. False when no source slot is
    // returned in time.
    bool send(uint32_t width, uint32_t height, int64_t nanoseconds,
              const std::function<void(uint8_t*)>& paint = {},
              std::optional<android::ConfigParams> carried = {});

    // Queues output buffers of the expected size until `target` are outstanding.
    void queueOutputs(size_t target);
    void queueOutputs() { queueOutputs(size_t{vpp->outBufReqsPerFrame()} * 3); }

    bool waitForSource();  // until send() would find a free source at once
    bool waitForTimestamp(uint64_t microseconds);
    void disable() { vpp->disable(); }
    void stop();  // flush and disable

    // Empty when every buffer has been returned once; else what is wrong.
    std::string account() const;

    Ledger ledger() const;
    size_t doubled() const;  // returns of what was not outstanding

    // Called on the thread that returns a buffer, before the ledger knows of it.
    std::function<void()> onReturn;

    // Called with each frame that comes out, one at a time, before its buffer is queued again.
    std::function<void(android::GraphicBuffer& frame, uint64_t microseconds)> onFrame;

    static bool serviceLives();

    std::shared_ptr<android::VppComponent> vpp;

  private:
    void onBufferDone(uint32_t port, int32_t slot, uint32_t valid, uint64_t timestamp) override;
    void onConfigChanged(std::set<uint32_t>) override {}
    int32_t takeSource(Size size);
    BufferRef takeOutput(size_t slot, size_t target);

    mutable std::mutex mLock;
    std::condition_variable mReturned;
    std::vector<BufferRef> mSources, mOutputs;
    Size mSize;  // of the newest source
    Ledger mLedger;
    uint64_t mNewest = 0;  // timestamp of a valid output
    std::vector<std::string> mWrong;
};

}  // namespace qoz::client
