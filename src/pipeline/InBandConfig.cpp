// Settings that a source frame carries: in force from the next frame on.
#include <Rgb2Yuv.h>
#include <qoz/VppComponent.h>

#include <new>

#include "pipeline/SourceFrame.h"
#include "session/Log.h"
#include "stream/VppUtils.h"

namespace android {
namespace {

constexpr const char* kOperation = "processBuffer";

// What a set of new settings changes.
constexpr uint32_t kOutBufReqs = 1;
constexpr uint32_t kInterpolation = 2;
constexpr uint32_t kUpscale = 4;

// The same, as the client is told.
constexpr uint32_t kOutBufReqsCode = 0;
constexpr uint32_t kUpscaleCode = 4;

}  // namespace

// No outcome of what it calls is examined: each reports its own failure, and the frame is queued.
void VppComponent::applyInBandConfig(SourceFrame& frame, const ConfigParams& params) {
    const uint32_t changed = adoptInBandConfig(params);
    if (changed == 0) return;
    try {
        std::set<uint32_t> codes;
        if ((changed & kOutBufReqs) != 0) codes.insert(kOutBufReqsCode);
        if ((changed & kUpscale) != 0) codes.insert(kUpscaleCode);
        if ((changed & kInterpolation) != 0) configVppFrc(frame.timestampUs());
        if ((changed & kUpscale) != 0) reshapeForUpscale(frame);
        publishStreamFacts();
        IQOZCallback* callback = client();
        if (callback != nullptr) callback->onConfigChanged(codes);
    } catch (const std::bad_alloc&) {
        VPP_LOGE("%s: out of memory, settings not applied", kOperation);
    }
}

// Stores the settings and says what they change. The factor is taken as it is.
uint32_t VppComponent::adoptInBandConfig(const ConfigParams& params) {
    uint32_t changed = 0;
    const uint32_t outBufReqs = calculateOutBufferReqsPerFrame(params);
    if (outBufReqs != mOutBufReqsPerFrame) {
        VPP_LOGI("%s: buffer requirement updates from %u to %u", kOperation, mOutBufReqsPerFrame,
                 outBufReqs);
        mOutBufReqsPerFrame = outBufReqs;
        changed |= kOutBufReqs;
    }
    VPP_LOGI("%s: Receive dynamic config settings for G-FRC+", kOperation);
    if (params.interpFactor != mInterpFactor) {
        VPP_LOGI("%s: G-FRC+ interp factor changes", kOperation);
        mInterpFactor = params.interpFactor;
        mMvEnabled = mInterpFactor != 0;
        if (mMvEnabled) {
            VPP_LOGI("Enable MV buffer for FRC %ux", mInterpFactor + 1);
        } else {
            VPP_LOGI("Disable MV buffer for FRC 1x");
        }
        changed |= kInterpolation;
    }
    if (params.upscaleIndex != mUpscaleIndex) {
        VPP_LOGI("%s: G-FRC+ upscale ratio changes", kOperation);
        mUpscaleIndex = params.upscaleIndex;
        applyUpscaleIndex(params.upscaleIndex);
        changed |= kUpscale;
    }
    return changed;
}

// A code outside the table changes neither the ratio nor the half-size copy.
void VppComponent::applyUpscaleIndex(uint32_t upscaleIndex) {
    switch (upscaleIndex) {
        case 0:
            mUpscaleRatio = 1.0F;
            mDsEnabled = true;
            VPP_LOGI("Enable DS buffer for G-FRC+ AIS 1x");
            break;
        case 1:
            mUpscaleRatio = 1.5F;
            mDsEnabled = true;
            VPP_LOGI("Enable DS buffer for G-FRC+ AIS 1.5x");
            break;
        case 2:
            mUpscaleRatio = 2.0F;
            mDsEnabled = false;
            VPP_LOGI("Disable DS buffer for G-FRC+ AIS 2x");
            break;
        default:
            break;
    }
}

void VppComponent::reshapeForUpscale(SourceFrame& frame) {
    processFlush_l(false);
    processReconfig_l(frame.width, frame.height, VppUtils::GetYUVFormat(mInputFormat));
    if (mMvEnabled) holdSlot(-1);
    if (mRgb2Yuv != nullptr) {
        mRgb2Yuv->Configure(frame.source, mExpectedOutWidth, mExpectedOutHeight);
    }
    mIsFirstFrame = true;
}

}  // namespace android
