#pragma once

#include <cerrno>
#include <cstdint>

namespace android {

using status_t = int32_t;

enum {
    OK = 0,
    NO_ERROR = OK,
    UNKNOWN_ERROR = INT32_MIN,
    NO_MEMORY = -ENOMEM,
    BAD_VALUE = -EINVAL,
    NO_INIT = -ENODEV,
    TIMED_OUT = -ETIMEDOUT,
    INVALID_OPERATION = -ENOSYS,
};

}  // namespace android
