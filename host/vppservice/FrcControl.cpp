// SPDX-License-Identifier: Apache-2.0
#include "host/vppservice/FrcControl.h"

#include <algorithm>

namespace qoz::host::vppservice {
namespace {

using Segment = vpp::VppCtrlFrcSegment;

// The values that the control accepts.
constexpr int32_t kModeOff = 0;
constexpr int32_t kModeOn = 5;
constexpr int32_t kHighestLevel = 3;
constexpr int32_t kLargestFactor = 16;
constexpr size_t kMostSegments = 4096;

bool isValid(const Segment& segment) {
    return (segment.mode == kModeOff || segment.mode == kModeOn) && segment.interpLevel >= 0 &&
           segment.interpLevel <= kHighestLevel && segment.interpFactor >= 0 &&
           segment.interpFactor <= kLargestFactor && segment.startTimestamp >= 0;
}

}  // namespace

VppError FrcControl::set(const std::vector<Segment>& segments) {
    if (segments.empty() || segments.size() > kMostSegments) return VppError::VPP_ERR_PARAM;
    if (!std::all_of(segments.begin(), segments.end(), isValid)) return VppError::VPP_ERR_PARAM;
    mSegments = segments;
    return VppError::VPP_OK;
}

// The segment with the latest start at or before `timestamp` is in effect; of two with equal
// starts, the later one in the list is.
uint32_t FrcControl::factorAt(uint64_t timestamp) const {
    const Segment* inForce = nullptr;
    for (const Segment& segment : mSegments) {
        if (static_cast<uint64_t>(segment.startTimestamp) > timestamp) continue;
        const bool later = inForce == nullptr || segment.startTimestamp >= inForce->startTimestamp;
        if (later) inForce = &segment;
    }
    if (inForce == nullptr || inForce->mode == kModeOff || inForce->interpLevel == 0) return 0;
    return static_cast<uint32_t>(inForce->interpFactor);
}

}  // namespace qoz::host::vppservice
