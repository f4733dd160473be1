// SPDX-License-Identifier: Apache-2.0
#include "stream/FrcAisControl.h"

#include <aidl/vendor/vuq/hardware/vpp/VppCtrlAis.h>

#include <algorithm>

namespace android {
namespace {

// What the numbers mean belongs to the service.
constexpr int32_t kFrcMode = 5;
constexpr int32_t kFrcParam1 = 40;
constexpr int32_t kFrcParam2 = 2;
constexpr int32_t kLevelOff = 0;
constexpr int32_t kLevelHigh = 3;
constexpr int32_t kAisMode = 2;
constexpr int32_t kAisParam = 30;

}  // namespace

// A segment of the previous start with a later timestamp would win over the one that this start
// sends, and an output time of the previous session would make segments seem started.
void FrcAisControl::restart() {
    mSegments.resize(1);
    mLastOutputTimestamp.store(0);
}

// Called before anything is stored, so that an allocation failure finds the settings unchanged.
void FrcAisControl::reserveSegment() {
    if (mSegments.size() == mSegments.capacity()) mSegments.reserve(2 * mSegments.size());
}

// A segment may be overwritten once a later one is in force, which is known when the output has
// passed the start of both. So when the output has reached the start of more than one segment, the
// one with the lowest index is overwritten; else the list grows by one.
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

// The whole list is sent each time: it replaces what the service knew. A refused segment stays in
// the list and travels with the next change.
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
