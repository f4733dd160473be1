// SPDX-License-Identifier: Apache-2.0
// The only friend of the component: what the tests read and set inside it.
#pragma once

#include <qoz/VppComponent.h>

#include <array>
#include <chrono>
#include <tuple>
#include <utility>

#include "session/Parts.h"
#include "support/Sanitized.h"

namespace android {

// Gives a test access to a component. The component must outlive the object.
class VppComponentPeer {
  public:
    using SideBuffers = android::SideBuffers;
    using VppBuffer = vpp::VppBuffer;

    explicit VppComponentPeer(VppComponent& component) : c(component) {}

    // The pools and the requests of the frame path.
    auto& yuvMap() { return c.mYuvBufferMap; }
    auto& freeYuv() { return c.mFreeYuvIndex; }
    auto& extradataMap() { return c.mExtradataBufferMap; }
    auto& freeExtradata() { return c.mFreeExtradataIndex; }
    bool requestYuv(sp<GraphicBuffer>* out, const RequestInfo& info) {
        return c.requestYuvBuffer(out, info);
    }
    bool requestExtradata(sp<GraphicBuffer>* fw, sp<GraphicBuffer>* bw, const RequestInfo& mv,
                          sp<GraphicBuffer>* ds, const RequestInfo& dsInfo) {
        return c.requestExtradataBuffer(fw, bw, mv, ds, dsInfo);
    }

    // The stream. Shape is the input of the rules for the port sizes.
    struct Shape {
        uint32_t width, height, maxWidth, maxHeight, upscaleIndex;
        float upscaleRatio;
        bool doubled;
    };
    // Returns width and height of the input port, then of the output port.
    std::array<uint32_t, 4> resolve(const Shape& shape) {
        std::tie(c.mWidth, c.mHeight) = std::tie(shape.width, shape.height);
        std::tie(c.mMaxWidth, c.mMaxHeight) = std::tie(shape.maxWidth, shape.maxHeight);
        std::tie(c.mUpscaleIndex, c.mUpscaleRatio, c.mDoubleOutput) =
            std::tie(shape.upscaleIndex, shape.upscaleRatio, shape.doubled);
        c.checkDownscaleAndSetExpectedResolution();
        return {c.mInPortWidth, c.mInPortHeight, c.mExpectedOutWidth, c.mExpectedOutHeight};
    }
    bool needDownscale(uint32_t w, uint32_t h) {
        return c.mNeedDownscale(w, h, c.mMaxWidth, c.mMaxHeight);
    }
    // Interpolation factor, AIS, doubled output, motion vectors, half-size copies, upscale ratio.
    using Settings = std::tuple<uint32_t, bool, bool, bool, bool, float>;
    Settings settings() const {
        return {c.mInterpFactor, c.mAisEnabled, c.mDoubleOutput,
                c.mMvEnabled,    c.mDsEnabled,  c.mUpscaleRatio};
    }
    void setSideBuffersEnabled(bool mv, bool ds) {
        std::tie(c.mMvEnabled, c.mDsEnabled) = std::tie(mv, ds);
    }
    std::list<int32_t>& slotList() { return c.mSlotList; }
    bool configFrc(uint64_t timestamp, uint64_t lastOutput, uint32_t factor) {
        c.mLastOutputTimestamp = lastOutput;
        c.mInterpFactor = factor;
        return c.configVppFrc(timestamp);
    }
    void setStatus(VppComponent::status s) { c.mStatus = s; }
    bool drain() { return c.processDrainDone_l(); }
    bool reconfig(uint32_t w, uint32_t h, uint32_t format) {
        return c.processReconfig_l(w, h, format);
    }

    // Queueing and delivery.
    bool queueBuffer(const sp<GraphicBuffer>& buffer, SideBuffers& side, uint32_t id, uint64_t ts,
                     bool isInput) {
        return c.queueBuffer(buffer, side, id, ts, isInput);
    }
    bool queueVppBuffer(uint32_t id, const sp<GraphicBuffer>& buffer, bool isInput) {
        return c.queueVppBuffer(id, buffer, 1, isInput);
    }
    void setNeedAdditionalBuffer(bool needed) { c.mNeedAdditionalBuffer = needed; }
    // Returns the numbers of input and output buffers in the VPP.
    std::pair<uint32_t, uint32_t> inVpp() const {
        return {c.mInputBuffersInVpp, c.mOutputBuffersInVpp};
    }
    void storeCommand(int32_t cmd) { c.mParts->worker.store(cmd); }  // does not wait
    // Holds the lock under which the worker checks for work before it sleeps.
    std::unique_lock<std::mutex> holdLook() { return std::unique_lock(c.mParts->worker.mPostLock); }
    bool store(uint32_t id, const VppBuffer& buffer) {
        return c.mParts->delivery.store(id, buffer);
    }
    size_t queued() {
        const std::lock_guard lock(c.mVppOBDQueueLock);
        return c.mVppOBDQueue.size();
    }
    bool startPending() const { return c.mStartPending; }
    bool firstFrame() const { return c.mIsFirstFrame; }
    void setWaitLimit(std::chrono::nanoseconds limit) { c.mParts->waitLimit.value = limit; }
    // A short limit that healthy operations keep, also under a sanitizer.
    static constexpr std::chrono::milliseconds kShortWait{qoz::test::kSanitized ? 600 : 200};
    void releaseHandle(const native_handle_t* handle, bool closeFds) {
        VppComponent::releaseNativeHandle(handle, closeFds);
    }

  private:
    VppComponent& c;
};

}  // namespace android
