// SPDX-License-Identifier: Apache-2.0
#include "pipeline/DeliveryQueue.h"

#include <new>

#include "vpp/RecordFields.h"

namespace android {

// Copies only the fields that are reported to the client. The record's descriptors are closed when
// the service's call ends.
bool DeliveryQueue::store(uint32_t slot, const Record& returned) {
    const std::lock_guard<std::mutex> lock(mLock);
    Record& record = mRecords[slot];
    try {
        mQueue.push_back(&record);
    } catch (const std::bad_alloc&) {
        return false;
    }
    record.cookie = slot;
    record.pixelFilledLen = returned.pixelFilledLen;
    record.timestamp = returned.timestamp;
    return true;
}

// A buffer that has been taken counts as undelivered until finish(), so that a flush also waits for
// its callback.
bool DeliveryQueue::take(Delivery* delivery) {
    const std::lock_guard<std::mutex> lock(mLock);
    if (mQueue.empty()) return false;
    mCurrent = mQueue.front();
    mDelivering = true;
    mQueue.pop_front();
    *delivery = {static_cast<int32_t>(mCurrent->cookie), mCurrent->pixelFilledLen != 0,
                 unsignedOf(mCurrent->timestamp), mQueue.size()};
    return true;
}

void DeliveryQueue::finish() {
    const std::lock_guard<std::mutex> lock(mLock);
    mDelivering = false;
    mDelivered.notify_all();
}

bool DeliveryQueue::waitUntilDelivered(WaitBudget& waits) {
    std::unique_lock<std::mutex> lock(mLock);
    const base::ScopedLockAssertion held(mLock);
    return waits.wait(mDelivered, lock,
                      [this]() REQUIRES(mLock) { return mQueue.empty() && !mDelivering; });
}

DeliveryQueue::Summary DeliveryQueue::summary() const {
    const std::lock_guard<std::mutex> lock(mLock);
    return {mQueue.size(), mDelivering ? static_cast<int64_t>(mCurrent->cookie) : -1};
}

}  // namespace android
