// SPDX-License-Identifier: Apache-2.0
#include "client/ReturnQueue.h"

#include <utility>

namespace qoz::client {

void ReturnQueue::onBufferDone(uint32_t port, int32_t slot, uint32_t valid, uint64_t timestamp) {
    const Clock::time_point now = Clock::now();
    if (onReturn) onReturn();
    const qoz::host::TraceSlice slice("onBufferDone");
    if (port == kSourcePort || valid != 0) mTrace.returned(port == kSourcePort, slot, timestamp);
    const std::lock_guard lock(mLock);
    if (!mLedger.giveBack(port, slot)) return;
    mDone.push_back({port, slot, valid != 0, timestamp, now});
    mReturned.notify_one();
    traceOutstanding(port);
}

// Adds the number of outstanding buffers to the trace.
void ReturnQueue::traceOutstanding(uint32_t port) {
    if (qoz::host::tracing()) mTrace.outstanding(port == kSourcePort, mLedger.outstanding(port));
}

void ReturnQueue::queue(uint32_t port, int32_t slot) {
    const std::lock_guard lock(mLock);
    mLedger.queue(port, slot);
    traceOutstanding(port);
}

bool ReturnQueue::refuse(uint32_t port, int32_t slot) {
    const std::lock_guard lock(mLock);
    return mLedger.refuse(port, slot);
}

std::vector<ReturnedBuffer> ReturnQueue::take(Clock::time_point end) {
    std::unique_lock lock(mLock);
    const android::base::ScopedLockAssertion held(mLock);
    mReturned.wait_until(lock, end, [this]() REQUIRES(mLock) { return !mDone.empty(); });
    return std::exchange(mDone, {});
}

size_t ReturnQueue::outstanding(uint32_t port) const {
    const std::lock_guard lock(mLock);
    return mLedger.outstanding(port);
}

Ledger ReturnQueue::ledger() const {
    const std::lock_guard lock(mLock);
    return mLedger;
}

void ReturnQueue::clear() {
    const std::lock_guard lock(mLock);
    mLedger = {};
    mDone.clear();
}

}  // namespace qoz::client
