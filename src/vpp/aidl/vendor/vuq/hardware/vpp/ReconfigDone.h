// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstdint>

namespace aidl::vendor::vuq::hardware::vpp {

// The outcome of a reconfiguration.
class ReconfigDone {
  public:
    int32_t status = 0;  // a VppError; VPP_OK if both ports have their new layouts
};

}  // namespace aidl::vendor::vuq::hardware::vpp
