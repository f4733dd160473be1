// SPDX-License-Identifier: Apache-2.0
#include "pipeline/SideBufferPool.h"

namespace android {
namespace {

// Returns whether both vector buffers exist; logs a failure if either is missing.
bool haveVectors(const SideBufferPool::Out& out) {
    if (*out.forward != nullptr && *out.backward != nullptr) return true;
    VPP_LOGE_BARE("failed to allocate fwBuffer or bwBuffer");
    return false;
}

bool allocateVectors(const SideBufferPool::Out& out, const RequestInfo& info) {
    *out.forward = pool::allocate(info);
    *out.backward = pool::allocate(info);
    return haveVectors(out);
}

bool allocateDownscaled(const SideBufferPool::Out& out, const RequestInfo& info) {
    *out.downscaled = pool::allocate(info);
    if (*out.downscaled != nullptr) return true;
    VPP_LOGE_BARE("failed to allocate dsBuffer");
    return false;
}

}  // namespace

SideBufferPool::SideBufferPool(Buffers& buffers, Keys& freeKeys, std::mutex& lock,
                               const SessionLog& log)
    : BufferPool(buffers, freeKeys, lock,
                 {"requestExtradataBuffer", "extradata", "extradata",
                  "Should NOT enter here, we should NOT push all empty extradata buffers!!"},
                 log) {}

// A request that needs no buffers logs a message but succeeds, because the frame path makes such
// requests: one for every frame without a reference frame if only motion vectors are enabled.
bool SideBufferPool::request(const Out& out, const RequestInfo& vectors,
                             const RequestInfo& downscaled) {
    if (out.forward == nullptr || out.backward == nullptr || out.downscaled == nullptr) {
        VPP_LOGE_BARE("requestExtradataBuffer : invalid buffer args");
        return false;
    }
    if (!vectors.needed && !downscaled.needed) {
        VPP_LOGE_BARE("no extradata needs to be requested");
        return true;
    }
    return serve([&] { return allocate(out, vectors, downscaled); },
                 [&](SideBuffers& oldest) { return draw(oldest, out, vectors, downscaled); });
}

bool SideBufferPool::allocate(const Out& out, const RequestInfo& vectors,
                              const RequestInfo& downscaled) const {
    if (vectors.needed) {
        VPP_LOGI("requestExtradataBuffer : allocate mv buffers:%ux%u", vectors.width,
                 vectors.height);
        if (!allocateVectors(out, vectors)) return false;
    }
    if (downscaled.needed) {
        VPP_LOGI("requestExtradataBuffer : allocate downscale buffer:%ux%u", downscaled.width,
                 downscaled.height);
        if (!allocateDownscaled(out, downscaled)) return false;
    }
    return true;
}

SideBufferPool::Drawn SideBufferPool::draw(SideBuffers& oldest, const Out& out,
                                           const RequestInfo& vectors,
                                           const RequestInfo& downscaled) const {
    Drawn drawn = Drawn::Reused;
    if (vectors.needed) drawn = drawVectors(oldest, out, vectors);
    if (drawn == Drawn::Failed || !downscaled.needed) return drawn;
    const Drawn copy = drawDownscaled(oldest, out, downscaled);
    return copy == Drawn::Reused ? drawn : copy;
}

// The two buffers of a pair are allocated together, so the forward one is checked for both.
// Allocating a missing pair does not count as a replacement.
SideBufferPool::Drawn SideBufferPool::drawVectors(SideBuffers& oldest, const Out& out,
                                                  const RequestInfo& info) const {
    auto& [forward, backward, downscaled] = oldest;
    if (forward == nullptr) {
        VPP_LOGI("requestExtradataBuffer : mv buffer is not pre-allocated, allocate new one");
        return allocateVectors(out, info) ? Drawn::Reused : Drawn::Failed;
    }
    if (pool::isCompatible(forward, info)) {
        VPP_LOGI("requestExtradataBuffer : mv buffer is compatible");
        *out.forward = std::move(forward);
        *out.backward = std::move(backward);
        return haveVectors(out) ? Drawn::Reused : Drawn::Failed;
    }
    VPP_LOGE_BARE("requestExtradataBuffer : mv buffers are not compatible, reallocate new buffer");
    return allocateVectors(out, info) ? Drawn::Replaced : Drawn::Failed;
}

SideBufferPool::Drawn SideBufferPool::drawDownscaled(SideBuffers& oldest, const Out& out,
                                                     const RequestInfo& info) const {
    sp<GraphicBuffer>& downscaled = std::get<2>(oldest);
    if (downscaled == nullptr) {
        VPP_LOGI(
            "requestExtradataBuffer : downscale buffer is not pre-allocated, allocate new one");
        return allocateDownscaled(out, info) ? Drawn::Reused : Drawn::Failed;
    }
    if (pool::isCompatible(downscaled, info)) {
        VPP_LOGI("requestExtradataBuffer : downscale buffer is compatible");
        *out.downscaled = std::move(downscaled);
        return Drawn::Reused;
    }
    VPP_LOGE_BARE(
        "requestExtradataBuffer : downscale buffer is not compatible, reallocate new buffer");
    return allocateDownscaled(out, info) ? Drawn::Replaced : Drawn::Failed;
}

}  // namespace android
