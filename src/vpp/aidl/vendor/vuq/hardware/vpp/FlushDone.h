// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstdint>

namespace aidl::vendor::vuq::hardware::vpp {

class FlushDone {
  public:
    int32_t port = 0;  // a VppPort
};

}  // namespace aidl::vendor::vuq::hardware::vpp
