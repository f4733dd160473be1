// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstdint>

namespace aidl::vendor::vuq::hardware::vpp {

// Frame-rate conversion from one moment of the stream on. A session knows several segments; for a
// frame counts the one with the latest start at or before it. What the numbers without a comment
// mean belongs to the service.
class VppCtrlFrcSegment {
  public:
    int32_t mode = 0;
    int32_t interpLevel = 0;   // 0 off, 3 high
    int32_t interpFactor = 0;  // n: (n + 1)x interpolation
    // Microseconds on the clock of the sources; 0 from the beginning.
    int64_t startTimestamp = 0;
    bool flag1 = false;
    bool flag2 = false;
    int32_t param1 = 0;
    int32_t reserved1 = 0;
    int32_t reserved2 = 0;
    int32_t param2 = 0;
};

}  // namespace aidl::vendor::vuq::hardware::vpp
