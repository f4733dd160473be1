// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstdint>

using nsecs_t = int64_t;

enum {
    SYSTEM_TIME_REALTIME = 0,
    SYSTEM_TIME_MONOTONIC = 1,
};

// Returns the time of the given clock in nanoseconds.
extern "C" nsecs_t systemTime(int clock = SYSTEM_TIME_MONOTONIC);
