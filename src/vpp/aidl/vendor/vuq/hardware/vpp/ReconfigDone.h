// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstdint>

namespace aidl::vendor::vuq::hardware::vpp {

// How a reconfiguration ended.
class ReconfigDone {
  public:
    int32_t status = 0;  // a VppError; VPP_OK: both ports have their new layout
};

}  // namespace aidl::vendor::vuq::hardware::vpp
