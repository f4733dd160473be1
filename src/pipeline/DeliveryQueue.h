// SPDX-License-Identifier: Apache-2.0
// Output buffers that the service has returned and the client has not been given yet. Private to
// src/.
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

// One record for each client slot, and the order in which they came back. Binder threads store, the
// output worker takes, the client's thread waits until all are delivered. A record is written under
// the queue's lock, so that even a service that returns a slot twice cannot tear it while the
// worker reads it. The lock is a leaf.
class DeliveryQueue {
  public:
    using Record = ::aidl::vendor::vuq::hardware::vpp::VppBuffer;
    using Records = std::array<Record, QOZBufferInfo::kOutputSlots>;

    // What the client is told of one buffer.
    struct Delivery {
        int32_t slot;
        bool filled;
        uint64_t timestamp;
        size_t left;  // still queued behind it
    };
    // For the state dump.
    struct Summary {
        size_t waiting;
        int64_t current;  // the slot that the client is being given; -1: none
    };

    DeliveryQueue(Records& records, std::deque<Record*>& queue, Record*& current, std::mutex& lock)
        : mRecords(records), mQueue(queue), mCurrent(current), mLock(lock) {}

    // False on allocation failure: the buffer is not in the queue.
    bool store(uint32_t slot, const Record& returned) EXCLUDES(mLock);

    // The next one; finish() when the client has been given it.
    bool take(Delivery* delivery) EXCLUDES(mLock);
    void finish() EXCLUDES(mLock);

    // Waits until the client has been given everything.
    bool waitUntilDelivered(WaitBudget& waits) EXCLUDES(mLock);

    // Drops what is left; how many that were.
    size_t clear() EXCLUDES(mLock);

    Summary summary() const EXCLUDES(mLock);

  private:
    Records& mRecords GUARDED_BY(mLock);
    std::deque<Record*>& mQueue GUARDED_BY(mLock);
    Record*& mCurrent GUARDED_BY(mLock);
    std::mutex& mLock;
    std::condition_variable mDelivered;
};

}  // namespace android
