// SPDX-License-Identifier: Apache-2.0
// The callback object of a client that handles returned buffers on its own thread.
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

// The arguments of one onBufferDone() call, with the time of the call.
struct ReturnedBuffer {
    uint32_t port;
    int32_t slot;
    bool valid;
    uint64_t timestamp;  // microseconds
    Clock::time_point at;
};

// Queues each buffer that the component returns, on whichever thread, until the client's thread
// takes it. It also keeps the ledger of the outstanding buffers, since it sees every return. mLock
// guards both; it is held only briefly and never during a call of the client's code.
class ReturnQueue : public android::IQOZCallback {
  public:
    // `session` names the session in the trace.
    explicit ReturnQueue(const std::string& session) : mTrace(session) {}

    // Records a return and wakes the client's thread. A return that does not match the ledger is
    // counted there but not queued. Any thread may call this.
    void onBufferDone(uint32_t port, int32_t slot, uint32_t valid, uint64_t timestamp) override
        EXCLUDES(mLock);
    void onConfigChanged(std::set<uint32_t>) override {}

    // Record in the ledger that a buffer is about to be queued, and that the component refused it;
    // see Ledger::queue() and Ledger::refuse().
    void queue(uint32_t port, int32_t slot) EXCLUDES(mLock);
    bool refuse(uint32_t port, int32_t slot) EXCLUDES(mLock);

    // Takes all queued returns, in the order in which they arrived. If there are none, waits for
    // the first one, at most until `end`; by default it does not wait.
    std::vector<ReturnedBuffer> take(Clock::time_point end = {}) EXCLUDES(mLock);

    size_t outstanding(uint32_t port) const EXCLUDES(mLock);
    Ledger ledger() const EXCLUDES(mLock);  // a copy
    // Empties the ledger and the queue, for a new session.
    void clear() EXCLUDES(mLock);

    // Called on the thread that returns a buffer, before the return is recorded in the ledger. Must
    // be set before the session starts.
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
