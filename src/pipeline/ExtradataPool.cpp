// Side buffers: forward and backward motion vectors and the half-size copy, one entry a frame.
#include <qoz/VppComponent.h>

#include "pipeline/BufferPool.h"
#include "session/Log.h"

namespace android {
namespace {

constexpr const char* kOperation = "requestExtradataBuffer";

enum class Offer { None, Fits, DoesNotFit };

// What a drawn entry offers for a request.
Offer judge(const sp<GraphicBuffer>& buffer, const RequestInfo& info) {
    if (buffer == nullptr) return Offer::None;
    return pool::isCompatible(buffer, info) ? Offer::Fits : Offer::DoesNotFit;
}

bool haveVectors(const sp<GraphicBuffer>& forward, const sp<GraphicBuffer>& backward) {
    if (forward != nullptr && backward != nullptr) return true;
    VPP_LOGE_BARE("failed to allocate fwBuffer or bwBuffer");
    return false;
}

bool haveDownscaled(const sp<GraphicBuffer>& downscaled) {
    if (downscaled != nullptr) return true;
    VPP_LOGE_BARE("failed to allocate dsBuffer");
    return false;
}

}  // namespace

bool VppComponent::requestExtradataBuffer(sp<GraphicBuffer>* fwOut, sp<GraphicBuffer>* bwOut,
                                          const RequestInfo& mvInfo, sp<GraphicBuffer>* dsOut,
                                          const RequestInfo& dsInfo) {
    if (fwOut == nullptr || bwOut == nullptr || dsOut == nullptr) {
        VPP_LOGE_BARE("%s : invalid buffer args", kOperation);
        return false;
    }
    if (!mvInfo.needed && !dsInfo.needed) {
        VPP_LOGE_BARE("no extradata needs to be requested");
        return true;
    }
    const std::lock_guard lock(mExtradataLock);
    if (mFreeExtradataIndex.empty()) {
        VPP_LOGI("%s : free extradata buffer list empty, allocating new buffers", kOperation);
        return allocateExtradata(fwOut, bwOut, mvInfo, dsOut, dsInfo);
    }
    VPP_LOGI("%s : free extradata buffer index list size=%u, extradata buffer map size=%u",
             kOperation, static_cast<uint32_t>(mFreeExtradataIndex.size()),
             static_cast<uint32_t>(mExtradataBufferMap.size()));
    const uint64_t oldest = *mFreeExtradataIndex.begin();
    SideBuffers& drawn = mExtradataBufferMap[oldest];
    bool mismatch = false;
    if (mvInfo.needed && !drawVectors(drawn, fwOut, bwOut, mvInfo, &mismatch)) return false;
    if (dsInfo.needed && !drawDownscaled(drawn, dsOut, dsInfo, &mismatch)) return false;
    if (mismatch) {
        VPP_LOGE_BARE("%s : buffer is not compatible, clear all existing buffers", kOperation);
    }
    pool::retireDrawn(mExtradataBufferMap, mFreeExtradataIndex, mExtradataSpares, oldest, mismatch);
    return true;
}

// The forward buffer decides for the pair.
bool VppComponent::drawVectors(SideBuffers& drawn, sp<GraphicBuffer>* fwOut,
                               sp<GraphicBuffer>* bwOut, const RequestInfo& info, bool* mismatch) {
    const Offer offer = judge(std::get<0>(drawn), info);
    if (offer == Offer::Fits) {
        VPP_LOGI("%s : mv buffer is compatible", kOperation);
        *fwOut = std::move(std::get<0>(drawn));
        *bwOut = std::move(std::get<1>(drawn));
        return haveVectors(*fwOut, *bwOut);
    }
    if (offer == Offer::None) {
        VPP_LOGI("%s : mv buffer is not pre-allocated, allocate new one", kOperation);
    } else {
        VPP_LOGE_BARE("%s : mv buffers are not compatible, reallocate new buffer", kOperation);
        *mismatch = true;
    }
    *fwOut = pool::allocate(info);
    *bwOut = pool::allocate(info);
    return haveVectors(*fwOut, *bwOut);
}

bool VppComponent::drawDownscaled(SideBuffers& drawn, sp<GraphicBuffer>* out,
                                  const RequestInfo& info, bool* mismatch) {
    const Offer offer = judge(std::get<2>(drawn), info);
    if (offer == Offer::Fits) {
        VPP_LOGI("%s : downscale buffer is compatible", kOperation);
        *out = std::move(std::get<2>(drawn));
        return true;
    }
    if (offer == Offer::None) {
        VPP_LOGI("%s : downscale buffer is not pre-allocated, allocate new one", kOperation);
    } else {
        VPP_LOGE_BARE("%s : downscale buffer is not compatible, reallocate new buffer", kOperation);
        *mismatch = true;
    }
    *out = pool::allocate(info);
    return haveDownscaled(*out);
}

bool VppComponent::allocateExtradata(sp<GraphicBuffer>* fwOut, sp<GraphicBuffer>* bwOut,
                                     const RequestInfo& mvInfo, sp<GraphicBuffer>* dsOut,
                                     const RequestInfo& dsInfo) {
    if (mvInfo.needed) {
        VPP_LOGI("%s : allocate mv buffers:%ux%u", kOperation, mvInfo.width, mvInfo.height);
        *fwOut = pool::allocate(mvInfo);
        *bwOut = pool::allocate(mvInfo);
        if (!haveVectors(*fwOut, *bwOut)) return false;
    }
    if (dsInfo.needed) {
        VPP_LOGI("%s : allocate downscale buffer:%ux%u", kOperation, dsInfo.width, dsInfo.height);
        *dsOut = pool::allocate(dsInfo);
        if (!haveDownscaled(*dsOut)) return false;
    }
    return true;
}

void VppComponent::freeExtradataEntry(uint64_t timestamp, const char* operation) {
    const std::lock_guard lock(mExtradataLock);
    switch (pool::markFree(mExtradataBufferMap, mFreeExtradataIndex, mExtradataSpares, timestamp)) {
        case pool::Freed::Absent:
            break;
        case pool::Freed::Empty:
            VPP_LOGE_BARE(
                "Should NOT enter here, we should NOT push all empty extradata buffers!!");
            break;
        case pool::Freed::Done:
            VPP_LOGI("%s : emplace free index in extradata map ts=%lu", operation, timestamp);
            break;
    }
}

void VppComponent::clearExtradataPool() {
    const std::lock_guard lock(mExtradataLock);
    mExtradataBufferMap.clear();
    mFreeExtradataIndex.clear();
}

}  // namespace android
