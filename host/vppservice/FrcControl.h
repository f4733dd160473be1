// SPDX-License-Identifier: Apache-2.0
// The frame-rate control of a session: the segments that the client has set, each with a factor
// that holds from a start time on.
#pragma once

#include <cstdint>
#include <vector>

#include "host/vppservice/Types.h"

namespace qoz::host::vppservice {

// The engine owns one and guards it with its lock.
class FrcControl {
  public:
    // Replaces the segments. If the result is not VPP_OK, the previous ones stay in effect.
    VppError set(const std::vector<vpp::VppCtrlFrcSegment>& segments);
    void clear() { mSegments.clear(); }

    // Returns the number of interpolated frames for an interval that begins at `timestamp`
    // (microseconds).
    uint32_t factorAt(uint64_t timestamp) const;

  private:
    std::vector<vpp::VppCtrlFrcSegment> mSegments;  // in the client's order
};

}  // namespace qoz::host::vppservice
