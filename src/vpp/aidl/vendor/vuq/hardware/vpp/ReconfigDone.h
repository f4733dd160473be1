// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstdint>

namespace aidl::vendor::vuq::hardware::vpp {

class ReconfigDone {
  public:
    int32_t status = 0;  // a VppError
};

}  // namespace aidl::vendor::vuq::hardware::vpp
