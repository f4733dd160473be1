#include <qoz/VppComponent.h>

#include <algorithm>

#include "session/Log.h"
#include "stream/VppUtils.h"

namespace android {

using ::aidl::vendor::vuq::hardware::vpp::VppError;
using ::aidl::vendor::vuq::hardware::vpp::VppPort;

namespace {

constexpr int32_t kVppMode = 2;

// Rounded up to a multiple of two.
uint32_t even(uint32_t value) {
    return (value + 1) & ~1U;
}

// In single precision, the fraction dropped; the largest number for what no number holds.
uint32_t truncatedProduct(float ratio, uint32_t value) {
    const float product = ratio * static_cast<float>(value);
    return product < 0x1p32F ? static_cast<uint32_t>(product) : UINT32_MAX;
}

}  // namespace

void VppComponent::checkDownscaleAndSetExpectedResolution() {
    mNeedDownscaleResult = mNeedDownscale(mWidth, mHeight, mMaxWidth, mMaxHeight);
    mInPortWidth = mWidth;
    mInPortHeight = mHeight;
    if (mNeedDownscaleResult) {
        // The limit in the orientation of the source; a square one gets its short side twice.
        const uint32_t longSide = std::max(mMaxWidth, mMaxHeight);
        const uint32_t shortSide = std::min(mMaxWidth, mMaxHeight);
        mInPortWidth = mWidth > mHeight ? longSide : shortSide;
        mInPortHeight = mWidth < mHeight ? longSide : shortSide;
    }
    const auto scaled = [this](uint32_t side) -> uint32_t {
        if (mDoubleOutput) return 2 * side;
        if (mUpscaleIndex == 1 || mUpscaleIndex == 2) {
            return even(truncatedProduct(mUpscaleRatio, even(side)));
        }
        return truncatedProduct(mUpscaleRatio, side);
    };
    mExpectedOutWidth = scaled(mInPortWidth);
    mExpectedOutHeight = scaled(mInPortHeight);
    publishStreamFacts();
}

// Runs on the worker for a posted Start, and on the client's thread for an output buffer that finds
// the session not started. The caller does not hold mLock.
bool VppComponent::processStart_l(uint32_t width, uint32_t height, uint32_t format) {
    VPP_LOGI("%s", "processStart_l");
    if (!isEnabled("processStart_l")) return false;
    VppError result = VppError::VPP_OK;
    (void)mVpp->setCtrlVppMode(kVppMode, &result);
    if (result == VppError::VPP_OK) VPP_LOGI("%s", "setCtrlVppMode");

    VPP_LOGI("%s", mDoubleOutput ? "configVppAis" : "configVppFrc");
    const bool configured = mDoubleOutput ? configVppAis() : configVppFrc(0);
    if (!configured) {
        VPP_LOGE("failed to config vpp");
        mStatus = ERROR;
        return false;
    }
    if (VppUtils::GetSupportedColor(format) < 0) {
        VPP_LOGE("vpp didn't support format:%u", format);
        return false;
    }
    mInputFormat = kNv12Vemo;
    VPP_LOGI("%s: w: %u, h: %u, infmt: %u, outfmt: %u", "processStart_l", width, height, format,
             VppUtils::GetYUVFormat(format));
    mWidth = width;
    mHeight = height;
    mFormat = format;
    checkDownscaleAndSetExpectedResolution();
    if (!startPorts()) return false;

    const std::lock_guard lock(mLock);
    mStatus = ACTIVE;
    return true;
}

// Sets both ports and opens the session. Both carry converted frames, whatever the source format.
bool VppComponent::startPorts() {
    const int32_t color = VppUtils::portColorFormat(kNv12Vemo);
    VppPortParam input;
    fillVppPort(&input, mInPortWidth, mInPortHeight, color);
    VPP_LOGI("vpp start with input port resolution: %ux%u", mInPortWidth, mInPortHeight);
    VppPortParam output;
    fillVppPort(&output, mExpectedOutWidth, mExpectedOutHeight, color);
    VPP_LOGI("vpp start with out port resolution: %ux%u", mExpectedOutWidth, mExpectedOutHeight);

    VppError inErr = VppError::VPP_OK;
    VppError outErr = VppError::VPP_OK;
    (void)mVpp->setParameter(VppPort::INPUT, input, &inErr);
    if (inErr == VppError::VPP_OK) (void)mVpp->setParameter(VppPort::OUTPUT, output, &outErr);
    VPP_LOGI("vpp set parameter input err: %u output err: %u", static_cast<uint32_t>(inErr),
             static_cast<uint32_t>(outErr));
    if (inErr != VppError::VPP_OK || outErr != VppError::VPP_OK) return false;

    VppError err = VppError::VPP_OK;
    (void)mVpp->open(&err);
    VPP_LOGI("vpp open ret: %u", static_cast<uint32_t>(err));
    return err == VppError::VPP_OK;
}

}  // namespace android
