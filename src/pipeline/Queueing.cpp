#include <qoz/VppComponent.h>

#include <new>
#include <utility>

#include "pipeline/BufferPool.h"
#include "pipeline/Cookie.h"
#include "pipeline/QueueRecord.h"
#include "pipeline/TraceMarker.h"
#include "session/Log.h"
#include "vpp/RecordFields.h"

namespace android {

using ::aidl::vendor::vuq::hardware::vpp::VppError;
using ::aidl::vendor::vuq::hardware::vpp::VppPort;

namespace {

constexpr const char* kForwardName = "vpp.metabuf.mv.fw";
constexpr const char* kBackwardName = "vpp.metabuf.mv.bw";
constexpr const char* kDownscaledName = "vpp.metabuf.scale.0p5";

}  // namespace

// A buffer of the client's that does not reach the service goes straight back, invalid; process()
// has taken it by then. One of the pool's own becomes free for the next frame.
bool VppComponent::queueBuffer(const sp<GraphicBuffer>& buffer, SideBuffers& extradata,
                               uint32_t cookie, uint64_t timestamp, bool isInput) {
    const bool pooled = isInput && mNeedAdditionalBuffer;
    bool queued = false;
    if (buffer == nullptr || buffer->getNativeBuffer()->handle == nullptr) {
        VPP_LOGE("invalid graphic buffer");
    } else if (isQueueableId(cookie, isInput)) {
        queued = isInput ? queueInput(buffer, extradata, cookie, timestamp)
                         : queueOutput(buffer, cookie, timestamp);
    }
    if (!queued && !pooled) giveBack(0, static_cast<int32_t>(cookie), 0, 0);
    return queued;
}

bool VppComponent::queueOutput(const sp<GraphicBuffer>& buffer, uint32_t cookie,
                               uint64_t timestamp) {
    if (mStatus == IDLE) {
        const std::lock_guard lock(mLock);
        mStatus = ACTIVE;
    }
    return queueVppBuffer(cookie, buffer, timestamp, false);
}

bool VppComponent::queueInput(const sp<GraphicBuffer>& buffer, SideBuffers& extradata,
                              uint32_t cookie, uint64_t timestamp) {
    const bool recordedExtradata = recordExtradata(extradata, timestamp);
    bool recordedYuv = false;
    if (mNeedAdditionalBuffer) {
        const std::lock_guard lock(mYuvLock);
        recordedYuv = pool::record(mYuvBufferMap, mYuvSpares, timestamp, buffer);
    }
    if (queueVppBuffer(cookie, buffer, timestamp, true)) return true;
    // No buffer-done will free what was just recorded; without this each refusal would cost a
    // buffer.
    if (recordedExtradata) freeExtradataEntry(timestamp, "queueBuffer");
    if (recordedYuv) freeYuvEntry(timestamp, "queueBuffer");
    return false;
}

// Output buffers come back through the delivery table, which has one record for each slot; a
// client's input buffer comes back by its id, which must not collide with the flag bits.
bool VppComponent::isQueueableId(uint32_t id, bool isInput) {
    const bool fits = isInput ? mNeedAdditionalBuffer || cookie::idOf(id) == id : id < kOutputSlots;
    if (fits) return true;
    VPP_LOGE("%s buffer refused: slot %d is out of range", isInput ? "input" : "output",
             static_cast<int32_t>(id));
    return false;
}

bool VppComponent::recordExtradata(SideBuffers& extradata, uint64_t timestamp) {
    if (!pool::holdsBuffer(extradata)) {
        VPP_LOGI("skip to emplace empty mv buffers and downscale buffers");
        return false;
    }
    SideBuffers travelling = std::exchange(extradata, {});
    const std::lock_guard lock(mExtradataLock);
    return pool::record(mExtradataBufferMap, mExtradataSpares, timestamp, std::move(travelling));
}

bool VppComponent::checkBufferCompatibility(const sp<GraphicBuffer>& buffer, bool skip) {
    if (skip ||
        (buffer->getWidth() == mExpectedOutWidth && buffer->getHeight() == mExpectedOutHeight)) {
        return true;
    }
    VPP_LOGW("Queued output buffer size=%ux%u doesn't match expected buffer size=%ux%u",
             buffer->getWidth(), buffer->getHeight(), mExpectedOutWidth, mExpectedOutHeight);
    return false;
}

bool VppComponent::queueVppBuffer(uint32_t cookie, const sp<GraphicBuffer>& buffer,
                                  uint64_t timestamp, bool isInput) {
    ATRACE_NAME("queueVppBuffer");
    const std::lock_guard lock(mLock);
    if (!isEnabled("queueVppBuffer")) return false;
    if (!checkBufferCompatibility(buffer, isInput)) return false;
    try {
        QueueRecord record(mMapper);
        if (isInput && !attachMetaBuffers(record, timestamp)) return false;
        if (!attachPixels(record, cookie, buffer, timestamp, isInput)) return false;
        return queueRecord(record.vppBuffer(), isInput);
    } catch (const std::bad_alloc&) {
        VPP_LOGE("%s: out of memory", "queueVppBuffer");
        return false;
    }
}

// False when descriptors have run out. A native handle that cannot be made only ends the attaching.
bool VppComponent::attachMetaBuffers(QueueRecord& record, uint64_t timestamp) {
    if (!mMvEnabled && !mDsEnabled) return true;
    SideBuffers side;
    {
        const std::lock_guard lock(mExtradataLock);
        const auto entry = mExtradataBufferMap.find(timestamp);
        if (entry != mExtradataBufferMap.end()) side = entry->second;
    }
    VPP_LOGI("Passing FW, BW and downscale buffer to vpp metabufs");
    const auto& [forward, backward, downscaled] = side;
    record.vppBuffer().metaBuffers.reserve(QueueRecord::kMaxMetaBuffers);
    Shared shared = Shared::Ok;
    if (forward != nullptr && backward != nullptr)
        shared = attachVectors(record, forward, backward);
    if (downscaled != nullptr && shared == Shared::Ok) {
        shared = attachDownscaled(record, downscaled);
    }
    return shared != Shared::NoDescriptor;
}

VppComponent::Shared VppComponent::attachVectors(QueueRecord& record,
                                                 const sp<GraphicBuffer>& forward,
                                                 const sp<GraphicBuffer>& backward) {
    auto& metas = record.vppBuffer().metaBuffers;
    metas.resize(2);
    auto shared = record.shareMeta(0, kForwardName, forward);
    if (shared == Shared::NoHandle) {
        VPP_LOGE_BARE("nhMeta1 native_handle_create failed");
    }
    if (shared != Shared::Ok) return shared;
    shared = record.shareMeta(1, kBackwardName, backward);
    if (shared == Shared::NoHandle) {
        VPP_LOGE_BARE("nhMeta2 native_handle_create failed");
    }
    if (shared != Shared::Ok) return shared;
    VPP_LOGI("FW buffer fd=%d, allocsize=%d BW buffer fd=%d, allocsize=%d",
             metas[0].metaHandle.fds[0].get(), static_cast<int>(metas[0].metaAllocLen),
             metas[1].metaHandle.fds[0].get(), static_cast<int>(metas[1].metaAllocLen));
    return shared;
}

VppComponent::Shared VppComponent::attachDownscaled(QueueRecord& record,
                                                    const sp<GraphicBuffer>& downscaled) {
    auto& metas = record.vppBuffer().metaBuffers;
    const auto& meta = metas.emplace_back();
    const auto shared = record.shareMeta(metas.size() - 1, kDownscaledName, downscaled);
    if (shared == Shared::NoHandle) {
        VPP_LOGE_BARE("nhMeta3 native_handle_create failed");
    }
    if (shared != Shared::Ok) return shared;
    VPP_LOGI("Metabuf size=%u, Downscale bufer fd=%d, allocsize=%d",
             static_cast<uint32_t>(metas.size()), meta.metaHandle.fds[0].get(),
             static_cast<int>(meta.metaAllocLen));
    return shared;
}

bool VppComponent::attachPixels(QueueRecord& record, uint32_t cookie,
                                const sp<GraphicBuffer>& buffer, uint64_t timestamp, bool isInput) {
    VppBuffer& out = record.vppBuffer();
    uint32_t allocLen = 0;
    const auto shared = record.share(buffer, &out.pixelHandle, &allocLen);
    if (shared == Shared::NoHandle) VPP_LOGE_BARE("native_handle_create failed");
    if (shared != Shared::Ok) return false;
    const int fd = buffer->getNativeBuffer()->handle->data[0];
    const int size = static_cast<int>(allocLen);
    VPP_LOGI("queueBuffer(%s): cookie: %u, fd:%d, size:%d ts:%lu ", isInput ? "input" : "output",
             cookie, fd, size, timestamp);
    VPP_LOGI("Pixel buffer fd=%d, allocsize=%d", fd, size);
    setUnsigned(out.pixelAllocLen, allocLen);
    setUnsigned(out.pixelFilledLen, isInput ? allocLen : 0);
    setUnsigned(out.pixelSize, allocLen);
    setUnsigned(out.timestamp, timestamp);
    out.cookie =
        isInput ? cookie::forInput(cookie, mNeedAdditionalBuffer) : cookie::forOutput(cookie);
    return true;
}

// Counted before the call: the buffer may be back before the call is.
bool VppComponent::queueRecord(const VppBuffer& record, bool isInput) {
    {
        const std::lock_guard lock(mBufferDoneLock);
        ++(isInput ? mInputBuffersInVpp : mOutputBuffersInVpp);
    }
    VppError result = VppError::VPP_OK;
    (void)mVpp->queueBuf(isInput ? VppPort::INPUT : VppPort::OUTPUT, record, &result);
    if (result != VppError::VPP_OK) {
        VPP_LOGE("failed to queue vpp buffer");
        countDone(isInput);
    }
    traceBuffersInVpp();
    return result == VppError::VPP_OK;
}

void VppComponent::traceBuffersInVpp() {
    if (ATRACE_ENABLED() == 0) return;
    int inputs = 0;
    int outputs = 0;
    {
        const std::lock_guard lock(mBufferDoneLock);
        inputs = static_cast<int>(mInputBuffersInVpp);
        outputs = static_cast<int>(mOutputBuffersInVpp);
    }
    VPP_TRACE_MARKER(128, "VPP input port buffer: %d , VPP output port buffer: %d", inputs,
                     outputs);
}

}  // namespace android
