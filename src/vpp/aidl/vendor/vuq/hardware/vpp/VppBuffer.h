// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <aidl/android/hardware/common/NativeHandle.h>
#include <aidl/vendor/vuq/hardware/vpp/VppMetaBuffer.h>

#include <cstdint>
#include <vector>

namespace aidl::vendor::vuq::hardware::vpp {

// One buffer exchanged on either port. Lengths, offsets and sizes are in bytes. The memory is
// passed as descriptors, never copied. The library leaves offsets, aux and reserved members zero.
class VppBuffer {
  public:
    // The pixels: one descriptor, of the whole allocation.
    ::aidl::android::hardware::common::NativeHandle pixelHandle;
    uint32_t pixelOffset = 0;
    // Of the allocation; so is pixelSize.
    uint32_t pixelAllocLen = 0;
    // 0 says that the buffer holds no frame.
    uint32_t pixelFilledLen = 0;
    uint32_t pixelSize = 0;
    // A second plane in memory of its own.
    ::aidl::android::hardware::common::NativeHandle auxHandle;
    uint32_t auxOffset = 0;
    uint32_t auxAllocLen = 0;
    uint32_t auxFilledLen = 0;
    uint32_t auxSize = 0;
    // Of a source frame: up to two vector fields and a half-size copy.
    std::vector<VppMetaBuffer> metaBuffers;
    uint32_t reserved32 = 0;
    // Of a frame, in microseconds on the clock of the sources. An output buffer is queued with the
    // time of its queueing in nanoseconds and comes back with that of the frame in it.
    uint64_t timestamp = 0;
    uint64_t reserved64 = 0;
    // The client's mark, returned as it was sent. The low 31 bits are the buffer's id, but for bit
    // 16: set for a conversion target that the library allocated. Bit 31, sign-extended: the output
    // port.
    int64_t cookie = 0;
};

}  // namespace aidl::vendor::vuq::hardware::vpp
