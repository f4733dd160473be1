// SPDX-License-Identifier: Apache-2.0
#include "pipeline/ReturnHandler.h"

#include "base/TraceMarker.h"
#include "pipeline/Cookie.h"
#include "vpp/RecordFields.h"

namespace android {
namespace {

// The client's slot as the messages print it, with the output bit if there is one.
uint32_t printedCookie(int64_t cookie) {
    return static_cast<uint32_t>(cookie) & ~cookie::kInternalBit;
}

}  // namespace

// What arrives after the death of the service has been given back already.
bool ReturnHandler::isExpected(const OutstandingBuffers::Return& returned,
                               const char* operation) const {
    if (!returned.expected) VPP_LOGE("%s: return from a dead vpp service dropped", operation);
    return returned.expected;
}

// The pools' entries become free once nothing else that was queued under their key is outstanding:
// two frames of one microsecond share them.
void ReturnHandler::onInputDone(const VppBuffer& buffer) {
    const bool internal = cookie::isInternal(buffer.cookie);
    const auto returned = p.outstanding.takeInput(cookie::idOf(buffer.cookie), internal,
                                                  unsignedOf(buffer.timestamp));
    if (!isExpected(returned, "onVppIBD")) return;
    if (returned.keyFree) {
        p.sidePool.free(returned.key, "onVppIBD");
        if (internal) p.yuvPool.free(returned.key, "onVppIBD");
    }
    if (!internal) p.client.giveBackUnused(static_cast<int32_t>(buffer.cookie));
    VPP_LOGI("onVppIBD: receive %s, buffer cookie %u",
             internal
                 ? "temp allocated buffer, only for internal recycle and no need to be sent out"
                 : "buffer queue allocated buffer, mark it as invalid and send out as OBD",
             printedCookie(buffer.cookie));
}

// The cookie says what the memory is. Without the output bit it is an input buffer that the service
// has passed on unprocessed (bypass), with the internal bit the component's own target; only the
// client's buffers are delivered. An output carries the timestamp of the frame that it was made
// from, whose side buffers are no longer needed once it has come.
void ReturnHandler::onOutputDone(const VppBuffer& buffer) {
    ATRACE_NAME("onVppOBD");
    const bool internal = cookie::isInternal(buffer.cookie);
    const bool bypassed = !cookie::isOutput(buffer.cookie);
    const uint32_t id = cookie::idOf(buffer.cookie);
    const uint64_t timestamp = unsignedOf(buffer.timestamp);
    if (bypassed) VPP_LOGD("Vpp works in bypass mode");
    const auto returned = bypassed ? p.outstanding.takeInput(id, internal, timestamp)
                                   : p.outstanding.takeOutput(id, timestamp);
    if (!isExpected(returned, "onVppOBD")) return;
    if (returned.keyFree) {
        if (internal) p.yuvPool.free(returned.key, "onVppOBD");
        p.sidePool.free(returned.key, "onVppOBD");
    }
    if (internal) {
        VPP_LOGD(
            "onVppOBD: receives temp allocated buffer cookie=%u, this should only happen when VPP "
            "bypassed",
            printedCookie(buffer.cookie));
        return;
    }
    deliver(id, buffer);
}

// An id without a record in the delivery table cannot be an output buffer's, but an input buffer of
// the client's may have one: it goes straight back.
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
    if (p.delivery.store(id, buffer)) {
        p.worker.requestDelivery();
    } else {
        p.client.giveBackUnused(slot);
    }
}

// On this thread: there need not be a worker any more. What the service had returned before is in
// the delivery queue and not among these.
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
