// SPDX-License-Identifier: Apache-2.0
#include "pipeline/ReturnHandler.h"

#include "base/TraceMarker.h"
#include "pipeline/Cookie.h"
#include "vpp/RecordFields.h"

namespace android {
namespace {

// Returns the slot as messages print it: with the output bit, without the internal bit.
uint32_t printedCookie(int64_t cookie) {
    return static_cast<uint32_t>(cookie) & ~cookie::kInternalBit;
}

// Two frames of the same microsecond share their entries. If one has been recorded since the
// decision to free the entry of `key`, decides again.
template <typename Pool, typename IsUsed>
void freeEntry(Pool& pool, uint64_t key, uint32_t before, const char* operation, IsUsed isUsed) {
    while (!pool.freeUnlessRecorded(key, operation, before)) {
        before = pool.records();
        if (isUsed(key)) return;
    }
}

}  // namespace

// Returns false, with a message, for a buffer that arrives after the service's death, because it
// was returned to the client then.
bool ReturnHandler::isExpected(const OutstandingBuffers::Return& returned,
                               const char* operation) const {
    if (!returned.expected) VPP_LOGE("%s: return from a dead vpp service dropped", operation);
    return returned.expected;
}

void ReturnHandler::freeSides(const OutstandingBuffers::Return& returned, const Records& before,
                              const char* operation) const {
    const auto isUsed = [this](uint64_t key) { return p.outstanding.areSidesUsed(key); };
    for (const auto& key : returned.sideKeys) {
        if (key) freeEntry(p.sidePool, *key, before.sides, operation, isUsed);
    }
}

void ReturnHandler::freeTargets(const OutstandingBuffers::Return& returned, const Records& before,
                                const char* operation) const {
    const auto isUsed = [this](uint64_t key) { return p.outstanding.isTargetUsed(key); };
    for (const auto& key : returned.yuvKeys) {
        if (key) freeEntry(p.yuvPool, *key, before.targets, operation, isUsed);
    }
}

void ReturnHandler::onInputDone(const VppBuffer& buffer) {
    const bool internal = cookie::isInternal(buffer.cookie);
    const Records before = records();
    const auto returned = p.outstanding.takeInput(cookie::idOf(buffer.cookie), internal,
                                                  unsignedOf(buffer.timestamp));
    if (!isExpected(returned, "onVppIBD")) return;
    freeSides(returned, before, "onVppIBD");
    freeTargets(returned, before, "onVppIBD");
    if (!internal) p.client.giveBackUnused(static_cast<int32_t>(buffer.cookie));
    VPP_LOGI("onVppIBD: receive %s, buffer cookie %u",
             internal
                 ? "temp allocated buffer, only for internal recycle and no need to be sent out"
                 : "buffer queue allocated buffer, mark it as invalid and send out as OBD",
             printedCookie(buffer.cookie));
}

// The cookie identifies the buffer. Without the output bit it is an input buffer that the service
// has passed through unprocessed (bypass). The internal bit marks the component's own target, which
// is not delivered. An output carries the timestamp of its source frame, whose side buffers are no
// longer needed once the output has arrived.
void ReturnHandler::onOutputDone(const VppBuffer& buffer) {
    ATRACE_NAME("onVppOBD");
    const bool internal = cookie::isInternal(buffer.cookie);
    const bool bypassed = !cookie::isOutput(buffer.cookie);
    const uint32_t id = cookie::idOf(buffer.cookie);
    const uint64_t timestamp = unsignedOf(buffer.timestamp);
    if (bypassed) VPP_LOGD("Vpp works in bypass mode");
    const Records before = records();
    const auto returned = bypassed ? p.outstanding.takeInput(id, internal, timestamp)
                                   : p.outstanding.takeOutput(id, timestamp);
    if (!isExpected(returned, "onVppOBD")) return;
    freeTargets(returned, before, "onVppOBD");
    freeSides(returned, before, "onVppOBD");
    if (internal) {
        VPP_LOGD(
            "onVppOBD: receives temp allocated buffer cookie=%u, this should only happen when VPP "
            "bypassed",
            printedCookie(buffer.cookie));
        return;
    }
    deliver(id, buffer);
}

// An id outside the delivery table cannot belong to an output buffer. It may belong to one of the
// client's input buffers, which is then returned directly.
void ReturnHandler::deliver(uint32_t id, const VppBuffer& buffer) {
    const auto slot = static_cast<int32_t>(id);
    if (slot >= QOZBufferInfo::kOutputSlots) {
        VPP_LOGE("onVppOBD: vpp returned unknown buffer id %u", id);
        if (!cookie::isOutput(buffer.cookie)) p.client.giveBackUnused(slot);
        return;
    }
    const uint64_t timestamp = unsignedOf(buffer.timestamp);
    VPP_LOGI("push the VPP OBD buffer , cookie=%u buffer timestamp = %lu ", id,
             static_cast<unsigned long>(timestamp));
    p.lastOutputTimestamp.store(timestamp);
    if (!p.delivery.store(id, buffer)) {
        p.client.giveBackUnused(slot);
    } else if (mDeliversDirectly) {
        p.worker.deliverQueued();
    } else {
        p.worker.requestDelivery();
    }
}

// Returns the buffers on this thread, because there may be no worker any more. Buffers that the
// service had returned before are in the delivery queue, not among these.
void ReturnHandler::onServiceDied() {
    const auto lost = p.outstanding.takeAll();
    for (const auto& input : lost.inputs) {
        if (!input.internal) p.client.giveBackUnused(static_cast<int32_t>(input.id));
    }
    for (size_t slot = 0; slot < lost.outputs.size(); ++slot) {
        for (uint32_t n = lost.outputs[slot]; n > 0; --n)
            p.client.giveBackUnused(static_cast<int32_t>(slot));
    }
}

}  // namespace android
