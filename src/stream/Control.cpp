#include <aidl/vendor/vuq/hardware/vpp/VppCtrlAis.h>
#include <qoz/VppComponent.h>

#include <algorithm>

#include "session/Log.h"

namespace android {

using ::aidl::vendor::vuq::hardware::vpp::VppCtrlAis;
using ::aidl::vendor::vuq::hardware::vpp::VppError;

namespace {

constexpr int32_t kFrcMode = 5;
constexpr int32_t kFrcParam1 = 40;
constexpr int32_t kFrcParam2 = 2;
constexpr int32_t kLevelOff = 0;
constexpr int32_t kLevelHigh = 3;
constexpr int32_t kAisMode = 2;
constexpr int32_t kAisParam = 30;

}  // namespace

// The segment that a setting which starts at `timestamp` (microseconds) is written into: when the
// output has reached more than one, that with the lowest index; else the list grows by one. 0 is
// the start of the session, the first segment.
VppComponent::VppCtrlFrcSegment& VppComponent::chooseFrcSegment(uint64_t timestamp) {
    if (timestamp == 0) return mFrcSegments.front();
    const auto reached = static_cast<int64_t>(mLastOutputTimestamp.load());
    const auto started = [reached](const VppCtrlFrcSegment& segment) {
        return segment.startTimestamp <= reached;
    };
    if (std::count_if(mFrcSegments.begin(), mFrcSegments.end(), started) > 1) {
        const auto lowest = std::find_if(mFrcSegments.begin(), mFrcSegments.end(), started);
        VPP_LOGD("Reuse existing FRC segment=%u",
                 static_cast<uint32_t>(lowest - mFrcSegments.begin()));
        return *lowest;
    }
    VPP_LOGD("Existing FRC segment size=%u, allocate new one",
             static_cast<uint32_t>(mFrcSegments.size()));
    return mFrcSegments.emplace_back();
}

bool VppComponent::configVppFrc(uint64_t timestamp) {
    VppCtrlFrcSegment& segment = chooseFrcSegment(timestamp);
    segment.startTimestamp = static_cast<int64_t>(timestamp);
    segment.mode = kFrcMode;
    segment.interpFactor = static_cast<int32_t>(mInterpFactor);
    if (mInterpFactor != 0) {
        segment.interpLevel = kLevelHigh;
        VPP_LOGI("FRC will do %ux interpolation, set interp to LEVEL_HIGH", mInterpFactor + 1);
    } else {
        segment.interpLevel = kLevelOff;
        VPP_LOGI("FRC will do %ux interpolation, set interp to LEVEL_OFF", mInterpFactor + 1);
    }
    segment.flag1 = true;
    segment.flag2 = false;
    segment.param1 = kFrcParam1;
    segment.param2 = kFrcParam2;

    VppError result = VppError::VPP_OK;
    (void)mVpp->setCtrlFrc(mFrcSegments, &result);
    if (result != VppError::VPP_OK) return false;
    VPP_LOGI("succeed to config FRC");
    return true;
}

bool VppComponent::configVppAis() {
    VppCtrlAis ctrl;
    ctrl.mode = kAisMode;
    ctrl.param = kAisParam;
    VppError result = VppError::VPP_OK;
    (void)mVpp->setCtrlAis(ctrl, &result);
    if (result != VppError::VPP_OK) return false;
    VPP_LOGI("succeed to config AIS");
    return true;
}

}  // namespace android
