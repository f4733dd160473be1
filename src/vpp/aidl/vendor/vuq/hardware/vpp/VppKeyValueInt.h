// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstdint>
#include <string>

namespace aidl::vendor::vuq::hardware::vpp {

// A named setting of VppCtrlAis. The library sends none.
class VppKeyValueInt {
  public:
    std::string key;
    int32_t value = 0;
};

}  // namespace aidl::vendor::vuq::hardware::vpp
