// SPDX-License-Identifier: Apache-2.0
// The frame-rate control of a session: which factor is in force where on the input's clock.
#pragma once

#include <cstdint>
#include <vector>

#include "host/vppservice/Types.h"

namespace qoz::host::vppservice {

class FrcControl {
  public:
    // Anything but VPP_OK leaves the control in force.
    VppError set(const std::vector<vpp::VppCtrlFrcSegment>& segments);
    void clear() { mSegments.clear(); }

    // In-between frames for an interval that begins at `timestamp` (microseconds).
    uint32_t factorAt(uint64_t timestamp) const;

  private:
    std::vector<vpp::VppCtrlFrcSegment> mSegments;  // in the order sent
};

}  // namespace qoz::host::vppservice
