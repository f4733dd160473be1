// SPDX-License-Identifier: Apache-2.0
#include "pipeline/YuvPool.h"

namespace android {

YuvPool::YuvPool(Buffers& buffers, Keys& freeKeys, std::mutex& lock, const SessionLog& log)
    : BufferPool(buffers, freeKeys, lock,
                 {"requestYuvBuffer", "yuv", "yuv",
                  "Should NOT enter here, we should NOT push any empty buffer"},
                 log) {}

bool YuvPool::request(sp<GraphicBuffer>* out, const RequestInfo& info) {
    if (out == nullptr) {
        VPP_LOGE_BARE("requestYuvBuffer : invalid buffer args");
        return false;
    }
    if (!info.needed) {
        VPP_LOGE_BARE("No need to request buffer, should not happen");
        return false;
    }
    return serve(
        [&] {
            VPP_LOGI("requestYuvBuffer : allocate yuv buffer:%ux%u", info.width, info.height);
            return allocate(out, info);
        },
        [&](sp<GraphicBuffer>& oldest) { return draw(oldest, out, info); });
}

// An entry without a buffer counts as one that does not fit.
YuvPool::Drawn YuvPool::draw(sp<GraphicBuffer>& oldest, sp<GraphicBuffer>* out,
                             const RequestInfo& info) const {
    if (oldest != nullptr && pool::isCompatible(oldest, info)) {
        VPP_LOGI("requestYuvBuffer : yuv buffer is compatible");
        *out = std::move(oldest);
        return Drawn::Reused;
    }
    VPP_LOGE("requestYuvBuffer : yuv buffer is not compatible, reallocate new buffer");
    return allocate(out, info) ? Drawn::Replaced : Drawn::Failed;
}

bool YuvPool::allocate(sp<GraphicBuffer>* out, const RequestInfo& info) const {
    *out = pool::allocate(info);
    if (*out == nullptr) VPP_LOGE_BARE("failed to allocate yuvBuffer");
    return *out != nullptr;
}

}  // namespace android
