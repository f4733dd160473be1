// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <aidl/android/hardware/common/NativeHandle.h>
#include <aidl/vendor/vuq/hardware/vpp/VppMetaBuffer.h>

#include <cstdint>
#include <vector>

namespace aidl::vendor::vuq::hardware::vpp {

// One buffer exchanged on either port. Lengths, offsets and sizes are in bytes. The memory is
// shared by descriptor and never copied. The library leaves the offsets and the aux and reserved
// members zero.
class VppBuffer {
  public:
    // The pixels: one descriptor, for the whole allocation.
    ::aidl::android::hardware::common::NativeHandle pixelHandle;
    uint32_t pixelOffset = 0;
    // Size of the allocation. The library sets pixelSize to the same value.
    uint32_t pixelAllocLen = 0;
    // 0 if the buffer holds no frame.
    uint32_t pixelFilledLen = 0;
    uint32_t pixelSize = 0;
    // A second plane in separate memory.
    ::aidl::android::hardware::common::NativeHandle auxHandle;
    uint32_t auxOffset = 0;
    uint32_t auxAllocLen = 0;
    uint32_t auxFilledLen = 0;
    uint32_t auxSize = 0;
    // The side buffers of a source frame: up to two vector fields and one half-size copy.
    std::vector<VppMetaBuffer> metaBuffers;
    uint32_t reserved32 = 0;
    // Timestamp of the frame, in microseconds on the clock of the sources. An output buffer is
    // queued with the time at which it is queued, in nanoseconds, and is returned with the
    // timestamp of the frame that it holds.
    uint64_t timestamp = 0;
    uint64_t reserved64 = 0;
    // Identifies the buffer and is returned unchanged. The low 31 bits without bit 16 are the
    // buffer id. Bit 16 marks a conversion target that the library allocated. Bit 31, which is
    // sign-extended, marks a buffer of the output port.
    int64_t cookie = 0;
};

}  // namespace aidl::vendor::vuq::hardware::vpp
