// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cerrno>
#include <cstdint>

namespace android {

// 0 or a negative errno.
using status_t = int32_t;

enum {
    OK = 0,
    NO_ERROR = OK,
    NO_MEMORY = -ENOMEM,
    BAD_VALUE = -EINVAL,
    NO_INIT = -ENODEV,
};

}  // namespace android
