// SPDX-License-Identifier: Apache-2.0
#include "stream/FrcAisControl.h"

#include <aidl/vendor/vuq/hardware/vpp/VppCtrlAis.h>

#include <algorithm>

namespace android {
namespace {

// The service defines the meaning of these values.
constexpr int32_t kFrcMode = 5;
constexpr int32_t kFrcParam1 = 40;
constexpr int32_t kFrcParam2 = 2;
constexpr int32_t kLevelOff = 0;
constexpr int32_t kLevelHigh = 3;
constexpr int32_t kAisMode = 2;
constexpr int32_t kAisParam = 30;

}  // namespace

// A segment left by the previous start with a later timestamp would take precedence over those of
// this start, and the output time of the previous session would make segments appear to have
// started. The first segment is emptied, too: frames may have reused it, and a start that only
// upscales does not write it.
void FrcAisControl::restart() {
    mSegments.assign(1, {});
    mLastOutputTimestamp.store(0);
}

// Must be called before any new setting is stored, so that an allocation failure leaves the
// settings unchanged.
void FrcAisControl::reserveSegment() {
    if (mSegments.size() == mSegments.capacity()) mSegments.reserve(2 * mSegments.size());
}

// If the output has reached the start of more than one segment, an earlier segment has been
// superseded, and the started segment with the lowest index is reused. Otherwise a segment is
// added.
vpp::VppCtrlFrcSegment& FrcAisControl::chooseSegment(uint64_t timestamp) {
    if (timestamp == 0) return mSegments.front();
    const auto reached = static_cast<int64_t>(mLastOutputTimestamp.load());
    const auto hasStarted = [reached](const vpp::VppCtrlFrcSegment& segment) {
        return segment.startTimestamp <= reached;
    };
    if (std::count_if(mSegments.begin(), mSegments.end(), hasStarted) > 1) {
        const auto lowest = std::find_if(mSegments.begin(), mSegments.end(), hasStarted);
        VPP_LOGD("Reuse existing FRC segment=%u",
                 static_cast<uint32_t>(lowest - mSegments.begin()));
        return *lowest;
    }
    VPP_LOGD("Existing FRC segment size=%u, allocate new one",
             static_cast<uint32_t>(mSegments.size()));
    return mSegments.emplace_back();
}

// Sends the whole list each time; it replaces the list that the service had. A refused segment
// stays in the list and is sent again with the next change.
bool FrcAisControl::configFrc(uint64_t timestamp) {
    vpp::VppCtrlFrcSegment& segment = chooseSegment(timestamp);
    const uint32_t factor = mSettings.interpFactor();
    segment.startTimestamp = static_cast<int64_t>(timestamp);
    segment.mode = kFrcMode;
    segment.interpFactor = static_cast<int32_t>(factor);
    if (factor != 0) {
        segment.interpLevel = kLevelHigh;
        VPP_LOGI("FRC will do %ux interpolation, set interp to LEVEL_HIGH", factor + 1);
    } else {
        segment.interpLevel = kLevelOff;
        VPP_LOGI("FRC will do %ux interpolation, set interp to LEVEL_OFF", factor + 1);
    }
    segment.flag1 = true;
    segment.flag2 = false;
    segment.param1 = kFrcParam1;
    segment.param2 = kFrcParam2;
    if (mService.setCtrlFrc(mSegments) != vpp::VppError::VPP_OK) return false;
    VPP_LOGI("succeed to config FRC");
    return true;
}

bool FrcAisControl::configAis() {
    vpp::VppCtrlAis ctrl;
    ctrl.mode = kAisMode;
    ctrl.param = kAisParam;
    if (mService.setCtrlAis(ctrl) != vpp::VppError::VPP_OK) return false;
    VPP_LOGI("succeed to config AIS");
    return true;
}

}  // namespace android
