// SPDX-License-Identifier: Apache-2.0
// Emptying a running session. Private to src/.
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
#include "pipeline/SideBufferPool.h"
#include "pipeline/YuvPool.h"
#include "stream/ServiceEvents.h"

namespace android {

// Has the service return everything it holds, and lets go of what the component holds for it: the
// pools, the converter's resources, the held source slots. Runs on the client's thread with
// the gate for output buffers closed.
class Flush {
  public:
    struct Peers {
        ServiceEvents& events;
        ServiceCalls& service;
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

    // True when the service has flushed both ports. The component lets go of its own either way, of
    // the YUV pool only if asked to.
    bool flushPorts(bool withYuvPool, WaitBudget& waits);

    // Flushes an ACTIVE session and waits until the client has been given everything: IDLE. ERROR
    // when the service refused, did not answer, or died.
    void flushAndDeliver(WaitBudget& waits) EXCLUDES(p.lock);

  private:
    const Peers p;
    const SessionLog& mLog;
};

}  // namespace android
