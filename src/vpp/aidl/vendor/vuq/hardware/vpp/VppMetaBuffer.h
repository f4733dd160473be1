// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <aidl/android/hardware/common/NativeHandle.h>

#include <cstdint>
#include <string>

namespace aidl::vendor::vuq::hardware::vpp {

// One side buffer attached to a source frame.
class VppMetaBuffer {
  public:
    // "vpp.metabuf.mv.fw" (forward vectors), "vpp.metabuf.mv.bw" (backward vectors) or
    // "vpp.metabuf.scale.0p5" (half-size copy).
    std::string metaName;
    // One descriptor, for the whole allocation.
    ::aidl::android::hardware::common::NativeHandle metaHandle;
    // Size of the allocation in bytes.
    uint32_t metaAllocLen = 0;
    uint32_t reserved1 = 0;
    uint32_t reserved2 = 0;
    uint32_t reserved3 = 0;
    uint32_t reserved4 = 0;
    uint32_t reserved5 = 0;
};

}  // namespace aidl::vendor::vuq::hardware::vpp
