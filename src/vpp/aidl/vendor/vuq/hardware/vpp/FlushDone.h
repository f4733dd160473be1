// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstdint>

namespace aidl::vendor::vuq::hardware::vpp {

// The end of the flush of one port.
class FlushDone {
  public:
    int32_t port = 0;  // a VppPort; any number but INPUT counts as OUTPUT
};

}  // namespace aidl::vendor::vuq::hardware::vpp
