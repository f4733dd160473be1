// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <aidl/vendor/vuq/hardware/vpp/VppKeyValueInt.h>

#include <cstdint>
#include <vector>

namespace aidl::vendor::vuq::hardware::vpp {

// Upscaling to twice the size. The library sets mode to 2 and param to 30; the service defines
// their meaning.
class VppCtrlAis {
  public:
    int32_t mode = 0;
    int32_t reserved1 = 0;
    int32_t reserved2 = 0;
    int32_t reserved3 = 0;
    int32_t reserved4 = 0;
    int32_t reserved5 = 0;
    int32_t param = 0;
    std::vector<VppKeyValueInt> keyValues;
};

}  // namespace aidl::vendor::vuq::hardware::vpp
