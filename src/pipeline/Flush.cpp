// SPDX-License-Identifier: Apache-2.0
#include "pipeline/Flush.h"

namespace android {

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
