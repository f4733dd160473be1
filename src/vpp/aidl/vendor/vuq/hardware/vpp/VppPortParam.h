// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstdint>

namespace aidl::vendor::vuq::hardware::vpp {

// The layout of the frames on one port.
class VppPortParam {
  public:
    int32_t height = 0;       // pixels
    int32_t width = 0;        // pixels
    int32_t stride = 0;       // row pitch in pixels
    int32_t scanlines = 0;    // number of rows in the plane
    int32_t colorFormat = 0;  // the service's code: 0 vendor YUV, 3 compressed NV12, 8 all others
};

}  // namespace aidl::vendor::vuq::hardware::vpp
