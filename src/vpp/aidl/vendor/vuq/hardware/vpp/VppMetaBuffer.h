// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <aidl/android/hardware/common/NativeHandle.h>

#include <cstdint>
#include <string>

namespace aidl::vendor::vuq::hardware::vpp {

// One extradata buffer attached to an input frame. Lengths in bytes.
class VppMetaBuffer {
  public:
    std::string metaName;
    ::aidl::android::hardware::common::NativeHandle metaHandle;
    uint32_t metaAllocLen = 0;
    uint32_t reserved1 = 0;
    uint32_t reserved2 = 0;
    uint32_t reserved3 = 0;
    uint32_t reserved4 = 0;
    uint32_t reserved5 = 0;
};

}  // namespace aidl::vendor::vuq::hardware::vpp
