// SPDX-License-Identifier: Apache-2.0
// The callback object of a client with a thread of its own: what the component returns, on whatever
// thread, waits here until the client's thread takes it. The object keeps the ledger as well.
#pragma once

#include <android-base/thread_annotations.h>

#include <condition_variable>
#include <mutex>
#include <vector>

#include "client/FrameTrace.h"
#include "client/Ledger.h"
#include "client/Types.h"

namespace qoz::client {

// What one onBufferDone() said, and when.
struct ReturnedBuffer {
    uint32_t port;
    int32_t slot;
    bool valid;
    uint64_t timestamp;  // microseconds
    Clock::time_point at;
};

class ReturnQueue final : public android::IQOZCallback {
  public:
    explicit ReturnQueue(const std::string& session) : mTrace(session) {}

    // Any thread. The lock is held for a moment only, and never while calling out.
    void onBufferDone(uint32_t port, int32_t slot, uint32_t valid, uint64_t timestamp) override
        EXCLUDES(mLock);
    void onConfigChanged(std::set<uint32_t> changes) override EXCLUDES(mLock);

    void queue(uint32_t port, int32_t slot) EXCLUDES(mLock);
    bool refuse(uint32_t port, int32_t slot)
        EXCLUDES(mLock);  // false: it has been returned already

    // Everything that was returned in good order since the last call; waits until `end` for it.
    std::vector<ReturnedBuffer> take(Clock::time_point end) EXCLUDES(mLock);
    std::vector<ReturnedBuffer> take() { return take(Clock::time_point()); }

    // Whether onConfigChanged() has been called since the last call.
    bool takeConfigChanged() EXCLUDES(mLock);

    size_t outstanding() const EXCLUDES(mLock);
    size_t outstanding(uint32_t port) const EXCLUDES(mLock);
    Ledger ledger() const EXCLUDES(mLock);
    FrameTrace& trace() { return mTrace; }

  private:
    void traceOutstanding(uint32_t port) REQUIRES(mLock);

    FrameTrace mTrace;
    mutable std::mutex mLock;
    std::condition_variable mReturned;
    Ledger mLedger GUARDED_BY(mLock);
    std::vector<ReturnedBuffer> mDone GUARDED_BY(mLock);
    bool mConfigChanged GUARDED_BY(mLock) = false;
};

}  // namespace qoz::client
