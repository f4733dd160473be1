// SPDX-License-Identifier: Apache-2.0
// Output buffers that the service has returned and the worker has not yet delivered to the client.
// Private to src/.
#pragma once

#include <aidl/vendor/vuq/hardware/vpp/VppBuffer.h>
#include <android-base/thread_annotations.h>
#include <qoz/ClientTypes.h>

#include <array>
#include <condition_variable>
#include <cstdint>
#include <deque>
#include <mutex>

#include "base/BoundedWait.h"

namespace android {

// Holds one record for each client slot, and a queue of records in the order of their return.
// Binder threads store records, the output worker takes them, and the client's thread waits until
// all are delivered. Without a worker, any thread may take them. Records are written under the
// queue's lock, so that a service that returns a slot twice cannot change a record while the worker
// reads it. The lock is a leaf.
class DeliveryQueue {
  public:
    using Record = ::aidl::vendor::vuq::hardware::vpp::VppBuffer;
    using Records = std::array<Record, QOZBufferInfo::kOutputSlots>;

    // The information about one buffer that the client receives.
    struct Delivery {
        int32_t slot;
        bool filled;
        uint64_t timestamp;
        size_t left;  // number of buffers queued behind it
    };
    // For the state dump.
    struct Summary {
        size_t waiting;
        int64_t current;  // the slot being delivered to the client; -1 if none
    };

    DeliveryQueue(Records& records, std::deque<Record*>& queue, Record*& current, std::mutex& lock)
        : mRecords(records), mQueue(queue), mCurrent(current), mLock(lock) {}

    // Queues a returned buffer. Returns false on allocation failure; the buffer is then not in the
    // queue.
    bool store(uint32_t slot, const Record& returned) EXCLUDES(mLock);

    // Takes the next buffer; returns false if there is none. Call finish() after the client's
    // callback.
    bool take(Delivery* delivery) EXCLUDES(mLock);
    void finish() EXCLUDES(mLock);

    // Waits until every buffer has been delivered. Returns false if the budget ran out first.
    bool waitUntilDelivered(WaitBudget& waits) EXCLUDES(mLock);

    Summary summary() const EXCLUDES(mLock);

  private:
    Records& mRecords GUARDED_BY(mLock);
    std::deque<Record*>& mQueue GUARDED_BY(mLock);
    Record*& mCurrent GUARDED_BY(mLock);         // the record that was delivered last
    bool mDelivering GUARDED_BY(mLock) = false;  // the client is being given mCurrent
    std::mutex& mLock;
    std::condition_variable mDelivered;
};

}  // namespace android
