// The one friend: what the tests look at and set inside a component.
#pragma once

#include <qoz/VppComponent.h>

namespace android {

class VppComponentPeer {
  public:
    using Segment = VppComponent::VppCtrlFrcSegment;
    using SideBuffers = VppComponent::SideBuffers;
    using VppBuffer = VppComponent::VppBuffer;
    using VppPortParam = VppComponent::VppPortParam;

    explicit VppComponentPeer(VppComponent& component) : c(component) {}

    // Pools, seen and filled as the frame path leaves them.
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

    // Stream.
    void setSource(uint32_t width, uint32_t height) {
        c.mWidth = width;
        c.mHeight = height;
    }
    void setMax(uint32_t width, uint32_t height) {
        c.mMaxWidth = width;
        c.mMaxHeight = height;
    }
    void setUpscale(uint32_t index, float ratio, bool doubled) {
        c.mUpscaleIndex = index;
        c.mUpscaleRatio = ratio;
        c.mDoubleOutput = doubled;
    }
    void resolve() { c.checkDownscaleAndSetExpectedResolution(); }
    bool needDownscale(uint32_t w, uint32_t h) {
        return c.mNeedDownscale(w, h, c.mMaxWidth, c.mMaxHeight);
    }
    uint32_t inWidth() const { return c.mInPortWidth; }
    uint32_t inHeight() const { return c.mInPortHeight; }
    uint32_t outWidth() const { return c.mExpectedOutWidth; }
    uint32_t outHeight() const { return c.mExpectedOutHeight; }
    bool mvEnabled() const { return c.mMvEnabled; }
    bool dsEnabled() const { return c.mDsEnabled; }
    void setSideBuffersEnabled(bool mv, bool ds) {
        c.mMvEnabled = mv;
        c.mDsEnabled = ds;
    }
    bool aisEnabled() const { return c.mAisEnabled; }
    bool doubleOutput() const { return c.mDoubleOutput; }
    uint32_t interpFactor() const { return c.mInterpFactor; }
    void setInterpFactor(uint32_t factor) { c.mInterpFactor = factor; }
    uint32_t upscaleIndex() const { return c.mUpscaleIndex; }
    float upscaleRatio() const { return c.mUpscaleRatio; }
    std::list<int32_t>& slotList() { return c.mSlotList; }
    std::vector<Segment>& segments() { return c.mFrcSegments; }
    void setLastOutput(uint64_t timestamp) { c.mLastOutputTimestamp = timestamp; }
    bool configFrc(uint64_t timestamp) { return c.configVppFrc(timestamp); }
    bool drain() { return c.processDrainDone_l(); }
    bool reconfig(uint32_t w, uint32_t h, uint32_t format) {
        return c.processReconfig_l(w, h, format);
    }

    // Queueing and delivery.
    bool queueBuffer(const sp<GraphicBuffer>& buffer, SideBuffers& side, uint32_t id, uint64_t ts,
                     bool isInput) {
        return c.queueBuffer(buffer, side, id, ts, isInput);
    }
    void setNeedAdditionalBuffer(bool needed) { c.mNeedAdditionalBuffer = needed; }
    uint32_t inputsInVpp() const { return c.mInputBuffersInVpp; }
    uint32_t outputsInVpp() const { return c.mOutputBuffersInVpp; }
    void post(int32_t cmd) { c.postOBDCmd(cmd); }
    void storeCommand(int32_t cmd) { c.storeOBDCmd(cmd); }  // waits for nobody
    // The worker looks for work, and goes to sleep, under this.
    std::unique_lock<std::mutex> holdLook() { return std::unique_lock(c.mOBDPostLock); }
    void requestDeliver() { c.requestDeliver(); }
    bool store(uint32_t id, const VppBuffer& buffer) { return c.storeOBD(id, buffer); }
    size_t queued() {
        const std::lock_guard lock(c.mVppOBDQueueLock);
        return c.mVppOBDQueue.size();
    }
    bool startPending() const { return c.mStartPending; }
    bool firstFrame() const { return c.mIsFirstFrame; }
    void setWaitLimit(std::chrono::nanoseconds limit) { c.mWaitLimit = limit; }
    void releaseHandle(const native_handle_t* handle, bool closeFds) {
        VppComponent::releaseNativeHandle(handle, closeFds);
    }

  private:
    VppComponent& c;
};

}  // namespace android
