// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstdint>

namespace aidl::vendor::vuq::hardware::vpp {

// The completion of a flush of one port.
class FlushDone {
  public:
    int32_t port = 0;  // a VppPort; any value other than INPUT is taken as OUTPUT
};

}  // namespace aidl::vendor::vuq::hardware::vpp
