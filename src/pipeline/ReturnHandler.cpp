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

}  // namespace

// Returns false, with a message, for a buffer that arrives after the service's death, because it
// was returned to the client then.
bool ReturnHandler::isExpected(const OutstandingBuffers::Return& returned,
                               const char* operation) const {
    if (!returned.expected) VPP_LOGE("%s: return from a dead vpp service dropped", operation);
    return returned.expected;
}

// A key is not among them while another outstanding frame uses its entry: two frames of the same
// microsecond share their entries.
template <typename Pool>
void ReturnHandler::freeEntries(Pool& pool, const OutstandingBuffers::Keys& keys, uint32_t reuses,
                                const char* operation) const {
    for (const auto& key : keys) {
        if (!key) continue;
        uint32_t before = reuses;
        while (!pool.freeUnlessReused(*key, operation, before)) {
            before = pool.reuses();
            if (p.outstanding.isUsed(*key)) break;
        }
    }
}

void ReturnHandler::onInputDone(const VppBuffer& buffer) {
    const bool internal = cookie::isInternal(buffer.cookie);
    const uint32_t sideReuses = p.sidePool.reuses();
    const uint32_t yuvReuses = p.yuvPool.reuses();
    const auto returned = p.outstanding.takeInput(cookie::idOf(buffer.cookie), internal,
                                                  unsignedOf(buffer.timestamp));
    if (!isExpected(returned, "onVppIBD")) return;
    freeEntries(p.sidePool, returned.sideKeys, sideReuses, "onVppIBD");
    freeEntries(p.yuvPool, returned.yuvKeys, yuvReuses, "onVppIBD");
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
    const uint32_t sideReuses = p.sidePool.reuses();
    const uint32_t yuvReuses = p.yuvPool.reuses();
    const auto returned = bypassed ? p.outstanding.takeInput(id, internal, timestamp)
                                   : p.outstanding.takeOutput(id, timestamp);
    if (!isExpected(returned, "onVppOBD")) return;
    freeEntries(p.yuvPool, returned.yuvKeys, yuvReuses, "onVppOBD");
    freeEntries(p.sidePool, returned.sideKeys, sideReuses, "onVppOBD");
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
