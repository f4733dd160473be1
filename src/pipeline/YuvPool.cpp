// Conversion targets: NV12 buffers of the component's own.
#include <qoz/VppComponent.h>

#include "pipeline/BufferPool.h"
#include "session/Log.h"

namespace android {

bool VppComponent::requestYuvBuffer(sp<GraphicBuffer>* out, const RequestInfo& info) {
    if (out == nullptr) {
        VPP_LOGE_BARE("%s : invalid buffer args", "requestYuvBuffer");
        return false;
    }
    if (!info.needed) {
        VPP_LOGE_BARE("No need to request buffer, should not happen");
        return false;
    }
    const std::lock_guard lock(mYuvLock);
    if (mFreeYuvIndex.empty()) {
        VPP_LOGI("%s : free yuv buffer list empty, allocating new buffers", "requestYuvBuffer");
        VPP_LOGI("%s : allocate yuv buffer:%ux%u", "requestYuvBuffer", info.width, info.height);
        return allocateYuv(out, info);
    }
    VPP_LOGI("%s : free yuv buffer index list size=%u, yuv buffer map size=%u", "requestYuvBuffer",
             static_cast<uint32_t>(mFreeYuvIndex.size()),
             static_cast<uint32_t>(mYuvBufferMap.size()));
    const uint64_t oldest = *mFreeYuvIndex.begin();
    sp<GraphicBuffer>& drawn = mYuvBufferMap[oldest];
    const bool reuse = drawn != nullptr && pool::isCompatible(drawn, info);
    if (reuse) {
        VPP_LOGI("%s : yuv buffer is compatible", "requestYuvBuffer");
        *out = std::move(drawn);
    } else {
        VPP_LOGE("%s : yuv buffer is not compatible, reallocate new buffer", "requestYuvBuffer");
        if (!allocateYuv(out, info)) return false;
        VPP_LOGE_BARE("%s : buffer is not compatible, clear all existing buffers",
                      "requestYuvBuffer");
    }
    pool::retireDrawn(mYuvBufferMap, mFreeYuvIndex, mYuvSpares, oldest, !reuse);
    return true;
}

bool VppComponent::allocateYuv(sp<GraphicBuffer>* out, const RequestInfo& info) {
    *out = pool::allocate(info);
    if (*out == nullptr) VPP_LOGE_BARE("failed to allocate yuvBuffer");
    return *out != nullptr;
}

void VppComponent::freeYuvEntry(uint64_t timestamp, const char* operation) {
    const std::lock_guard lock(mYuvLock);
    switch (pool::markFree(mYuvBufferMap, mFreeYuvIndex, mYuvSpares, timestamp)) {
        case pool::Freed::Absent:
            break;
        case pool::Freed::Empty:
            VPP_LOGE_BARE("Should NOT enter here, we should NOT push any empty buffer");
            break;
        case pool::Freed::Done:
            VPP_LOGI("%s : emplace free index in yuv map ts=%lu", operation, timestamp);
            break;
    }
}

void VppComponent::clearYuvPool() {
    const std::lock_guard lock(mYuvLock);
    mYuvBufferMap.clear();
    mFreeYuvIndex.clear();
}

}  // namespace android
