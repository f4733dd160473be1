// SPDX-License-Identifier: Apache-2.0
// The callback object of a client with a thread of its own: what the component returns, on whatever
// thread, waits here until the client's thread takes it. The object keeps the ledger as well.
#pragma once

#include <android-base/thread_annotations.h>

#include <condition_variable>
#include <functional>
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

class ReturnQueue : public android::IQOZCallback {
  public:
    explicit ReturnQueue(const std::string& session) : mTrace(session) {}

    // Any thread. The lock is held for a moment only, and never while calling out.
    void onBufferDone(uint32_t port, int32_t slot, uint32_t valid, uint64_t timestamp) override
        EXCLUDES(mLock);
    void onConfigChanged(std::set<uint32_t>) override {}

    void queue(uint32_t port, int32_t slot) EXCLUDES(mLock);
    bool refuse(uint32_t port, int32_t slot)
        EXCLUDES(mLock);  // false: it has been returned already

    // Everything that was returned in good order since the last call; waits until `end` for it.
    std::vector<ReturnedBuffer> take(Clock::time_point end = {}) EXCLUDES(mLock);

    size_t outstanding(uint32_t port) const EXCLUDES(mLock);
    Ledger ledger() const EXCLUDES(mLock);
    void clear() EXCLUDES(mLock);  // forgets everything

    // Called on the thread that returns a buffer, before the ledger knows of it.
    std::function<void()> onReturn;

  protected:
    ~ReturnQueue() = default;

    FrameTrace mTrace;

  private:
    void traceOutstanding(uint32_t port) REQUIRES(mLock);

    mutable std::mutex mLock;
    std::condition_variable mReturned;
    Ledger mLedger GUARDED_BY(mLock);
    std::vector<ReturnedBuffer> mDone GUARDED_BY(mLock);
};

}  // namespace qoz::client
