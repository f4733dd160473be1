// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstdint>

namespace aidl::vendor::vuq::hardware::vpp {

// Frame-rate conversion that takes effect at a given time of the stream. A session has several
// segments; the segment with the latest start at or before a frame's timestamp applies to that
// frame. The service defines the meaning of the members without a comment.
class VppCtrlFrcSegment {
  public:
    int32_t mode = 0;
    int32_t interpLevel = 0;   // 0 off, 3 high
    int32_t interpFactor = 0;  // n multiplies the frame rate by n + 1
    // In microseconds on the clock of the source timestamps; 0 is the beginning of the stream.
    int64_t startTimestamp = 0;
    bool flag1 = false;
    bool flag2 = false;
    int32_t param1 = 0;
    int32_t reserved1 = 0;
    int32_t reserved2 = 0;
    int32_t param2 = 0;
};

}  // namespace aidl::vendor::vuq::hardware::vpp
