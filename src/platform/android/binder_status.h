// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstdint>

// The status of a binder transaction. Any value except STATUS_OK is a transport error: the
// operation may or may not have run, and no result has been written.
enum {
    STATUS_OK = 0,
    STATUS_UNKNOWN_ERROR = INT32_MIN,
    STATUS_UNKNOWN_TRANSACTION = -74,
    STATUS_DEAD_OBJECT = -32,
    STATUS_NAME_NOT_FOUND = -2,
    STATUS_UNEXPECTED_NULL = -2147483640,
};
typedef int32_t binder_status_t;
