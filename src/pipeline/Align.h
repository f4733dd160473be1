// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstdint>

namespace android {

// `value` rounded up to a multiple of `alignment`; unchanged when `value` is 0 or `alignment`
// below 2.
constexpr uint32_t align(uint32_t value, uint32_t alignment) {
    if (value == 0 || alignment < 2) return value;
    return (value - 1) / alignment * alignment + alignment;
}

}  // namespace android
