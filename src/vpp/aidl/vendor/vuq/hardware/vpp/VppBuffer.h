// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <aidl/android/hardware/common/NativeHandle.h>
#include <aidl/vendor/vuq/hardware/vpp/VppMetaBuffer.h>

#include <cstdint>
#include <vector>

namespace aidl::vendor::vuq::hardware::vpp {

// One buffer exchanged on either port. Lengths, offsets and sizes in bytes. A pixelFilledLen of 0
// says that the buffer holds no frame.
class VppBuffer {
  public:
    ::aidl::android::hardware::common::NativeHandle pixelHandle;
    uint32_t pixelOffset = 0;
    uint32_t pixelAllocLen = 0;
    uint32_t pixelFilledLen = 0;
    uint32_t pixelSize = 0;
    ::aidl::android::hardware::common::NativeHandle auxHandle;
    uint32_t auxOffset = 0;
    uint32_t auxAllocLen = 0;
    uint32_t auxFilledLen = 0;
    uint32_t auxSize = 0;
    std::vector<VppMetaBuffer> metaBuffers;
    uint32_t reserved32 = 0;
    uint64_t timestamp = 0;
    uint64_t reserved64 = 0;
    int64_t cookie = 0;
};

}  // namespace aidl::vendor::vuq::hardware::vpp
