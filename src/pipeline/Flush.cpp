// SPDX-License-Identifier: Apache-2.0
#include "pipeline/Flush.h"

namespace android {

// The order matters. Once the service has answered, it holds no buffers, so the pools may drop the
// buffers of its frames and the converter its resources. The held source slots are returned last.
bool Flush::flushPorts(bool withYuvPool, WaitBudget& waits) {
    if (!p.service.hasSession()) {
        VPP_LOGE("processFlush_l: component is not enabled");
        return false;
    }
    VPP_LOGI("processFlush_l");
    const bool flushed = p.events.flush(waits);
    if (flushed) p.outstanding.forgetInternalInputs();
    p.sidePool.clear();
    if (withYuvPool) p.yuvPool.clear();
    p.converter.releaseResources();
    p.heldSlots.releaseAll();
    return flushed;
}

// Carries out flushsync(). The component's lock is held to the end, so that no start and no buffer
// comes between the flush and the change of state. The worker can deliver without that lock. If the
// deliveries outlast the budget, that is logged, and they finish later.
void Flush::flushAndDeliver(WaitBudget& waits) {
    // Waits for a pending start first: the start needs the component's lock, which the flush will
    // hold.
    if (!p.worker.waitForPendingStart(waits, "flushsync")) return;
    const Gate::Closure closure(p.outputGate, &waits);
    if (!closure) {
        VPP_LOGE("flushsync: an output buffer is still being queued");
        return;
    }
    const std::lock_guard<std::mutex> lock(p.lock);
    VPP_LOGI("flushsync");
    if (p.status != Status::ACTIVE) return;
    p.status = Status::PENDING;
    if (!flushPorts(true, waits)) {
        p.status = Status::ERROR;
        return;
    }
    p.status = Status::IDLE;
    VPP_LOGI("Flush OBD queue");
    p.worker.requestDelivery();
    if (!p.delivery.waitUntilDelivered(waits)) {
        VPP_LOGE("flushsync: output buffers not delivered in time");
    }
}

}  // namespace android
