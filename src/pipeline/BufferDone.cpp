// Buffers that the service gives back. The handlers run on binder threads, several at once; they
// take leaf locks, one at a time, and wait for nobody.
#include <qoz/VppComponent.h>

#include <new>

#include "pipeline/Cookie.h"
#include "pipeline/TraceMarker.h"
#include "session/Log.h"
#include "vpp/RecordFields.h"

namespace android {

// One buffer less in the VPP. A return that matches no queueing leaves a zero at zero.
void VppComponent::countDone(bool isInput) {
    const std::lock_guard lock(mBufferDoneLock);
    uint32_t& count = isInput ? mInputBuffersInVpp : mOutputBuffersInVpp;
    if (count > 0) --count;
}

void VppComponent::onVppIBD(const VppBuffer& buffer) {
    const bool internal = cookie::isInternal(buffer.cookie);
    const uint64_t timestamp = unsignedOf(buffer.timestamp);
    freeExtradataEntry(timestamp, "onVppIBD");
    if (internal) freeYuvEntry(timestamp, "onVppIBD");
    countDone(true);
    if (!internal) giveBack(0, static_cast<int32_t>(buffer.cookie), 0, 0);
    VPP_LOGI("%s: receive %s, buffer cookie %u", "onVppIBD",
             internal
                 ? "temp allocated buffer, only for internal recycle and no need to be sent out"
                 : "buffer queue allocated buffer, mark it as invalid and send out as OBD",
             static_cast<uint32_t>(buffer.cookie) & ~cookie::kInternalBit);
}

void VppComponent::onVppOBD(const VppBuffer& buffer) {
    ATRACE_NAME("onVppOBD");
    const bool bypassed = !cookie::isOutput(buffer.cookie);
    if (bypassed) VPP_LOGD("Vpp works in bypass mode");
    countDone(bypassed);
    const bool internal = cookie::isInternal(buffer.cookie);
    const uint64_t timestamp = unsignedOf(buffer.timestamp);
    if (internal) freeYuvEntry(timestamp, "onVppOBD");
    freeExtradataEntry(timestamp, "onVppOBD");
    if (internal) {
        VPP_LOGD(
            "%s: receives temp allocated buffer cookie=%u, this should only happen when VPP "
            "bypassed",
            "onVppOBD", static_cast<uint32_t>(buffer.cookie) & ~cookie::kInternalBit);
        return;
    }
    enqueueOBD(cookie::idOf(buffer.cookie), buffer);
}

// The record is written under the queue's lock, so that even a service that returns a slot twice
// cannot tear it under the worker's eyes.
void VppComponent::enqueueOBD(uint32_t id, const VppBuffer& buffer) {
    if (id >= kOutputSlots) {
        VPP_LOGE("%s: vpp returned unknown buffer id %u", "onVppOBD", id);
        // Without a record there is no delivery, but an input buffer of the client's has such an
        // id.
        if (!cookie::isOutput(buffer.cookie)) giveBack(0, static_cast<int32_t>(id), 0, 0);
        return;
    }
    const uint64_t timestamp = unsignedOf(buffer.timestamp);
    VPP_LOGI("push the VPP OBD buffer , cookie=%u buffer timestamp = %lu ", id, timestamp);
    mLastOutputTimestamp.store(timestamp);
    if (storeOBD(id, buffer)) {
        requestDeliver();
    } else {
        giveBack(0, static_cast<int32_t>(id), 0, 0);
    }
}

// False when memory is too short for a longer queue.
bool VppComponent::storeOBD(uint32_t id, const VppBuffer& buffer) {
    const std::lock_guard lock(mVppOBDQueueLock);
    VppBuffer& record = mOBDBuffers[id];
    try {
        mVppOBDQueue.push_back(&record);
    } catch (const std::bad_alloc&) {
        return false;
    }
    record.cookie = id;
    record.pixelFilledLen = buffer.pixelFilledLen;
    record.timestamp = buffer.timestamp;
    return true;
}

}  // namespace android
