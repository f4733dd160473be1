// SPDX-License-Identifier: Apache-2.0
#include "pipeline/Flush.h"

namespace android {

// The order matters: when the service has answered it holds nothing, so the pools may drop what
// travelled with its frames, the converter its resources, and the sources go back last.
bool Flush::flushPorts(bool withYuvPool, WaitBudget& waits) {
    if (!p.service.hasSession()) {
        VPP_LOGE("processFlush_l: component is not enabled");
        return false;
    }
    VPP_LOGI("processFlush_l");
    const bool flushed = p.events.flush(waits);
    p.sidePool.clear();
    if (withYuvPool) p.yuvPool.clear();
    p.converter.releaseResources();
    p.heldSlots.releaseAll();
    return flushed;
}

// The client's operation. The lock is held to the end, so that no start and no buffer comes between
// the flush and the change of state; the worker needs it for neither deliveries nor callbacks. A
// delivery that outlasts the budget is reported and finishes later.
void Flush::flushAndDeliver(WaitBudget& waits) {
    // A flush holds the component's lock, which a start on the worker needs: let that finish first.
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
