// SPDX-License-Identifier: Apache-2.0
// The cookie that identifies a buffer in the VPP. Private to src/.
//
// The low 31 bits contain the buffer id (the client's slot), except bit 16, which marks a buffer of
// the component's own pool. Bit 31 marks the output port and is sign-extended to 64 bits.
#pragma once

#include <cstdint>

namespace android::cookie {

constexpr uint32_t kInternalBit = 0x10000;
constexpr uint32_t kOutputBit = 0x80000000;
constexpr uint32_t kIdMask = ~(kInternalBit | kOutputBit);  // 0x7FFEFFFF
static_assert(kIdMask == 0x7FFEFFFF);

constexpr int64_t forInput(uint32_t id, bool internal) {
    return static_cast<int64_t>(internal ? id | kInternalBit : id);
}
constexpr int64_t forOutput(uint32_t id) {
    return static_cast<int32_t>(id | kOutputBit);  // sign-extended to 64 bits
}

constexpr bool isInternal(int64_t cookie) {
    return (cookie & kInternalBit) != 0;
}
constexpr bool isOutput(int64_t cookie) {
    return static_cast<int32_t>(cookie) < 0;
}
constexpr uint32_t idOf(int64_t cookie) {
    return static_cast<uint32_t>(cookie & kIdMask);
}

}  // namespace android::cookie
