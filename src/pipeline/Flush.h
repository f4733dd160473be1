// SPDX-License-Identifier: Apache-2.0
// Flushing of a running session. Private to src/.
#pragma once

#include <mutex>

#include "base/BoundedWait.h"
#include "base/Gate.h"
#include "base/Log.h"
#include "base/SessionStatus.h"
#include "pipeline/Converter.h"
#include "pipeline/DeliveryQueue.h"
#include "pipeline/HeldSlots.h"
#include "pipeline/OutputWorker.h"
#include "pipeline/OutstandingBuffers.h"
#include "pipeline/SideBufferPool.h"
#include "pipeline/YuvPool.h"
#include "stream/ServiceEvents.h"

namespace android {

// Makes the service return every buffer it has, and releases what the component holds for the
// session: the pools, the converter's resources and the held source slots. Runs on the client's
// thread with the gate for output buffers closed.
class Flush {
  public:
    struct Peers {
        ServiceEvents& events;
        ServiceCalls& service;
        OutstandingBuffers& outstanding;
        SideBufferPool& sidePool;
        YuvPool& yuvPool;
        Converter& converter;
        HeldSlots& heldSlots;
        DeliveryQueue& delivery;
        OutputWorker& worker;
        Gate& outputGate;
        SessionStatus& status;
        std::mutex& lock;  // of the component
        const SessionLog& log;
    };

    explicit Flush(const Peers& peers) : p(peers), mLog(peers.log) {}

    // Returns true if the service has flushed both ports. The component's own resources are
    // released in either case; the YUV pool is cleared only if `withYuvPool` is set.
    bool flushPorts(bool withYuvPool, WaitBudget& waits);

    // Flushes an ACTIVE session and waits until every output buffer has been delivered. Leaves
    // IDLE, or ERROR if the service refused, did not answer or died.
    void flushAndDeliver(WaitBudget& waits) EXCLUDES(p.lock);

  private:
    const Peers p;
    const SessionLog& mLog;
};

}  // namespace android
