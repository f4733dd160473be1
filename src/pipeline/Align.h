// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstdint>

namespace android {

// Returns `value` rounded up to a multiple of `alignment`. Returns `value` unchanged if it is 0 or
// if `alignment` is less than 2.
constexpr uint32_t align(uint32_t value, uint32_t alignment) {
    if (value == 0 || alignment < 2) return value;
    return (value - 1) / alignment * alignment + alignment;
}

}  // namespace android
