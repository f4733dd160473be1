// SPDX-License-Identifier: Apache-2.0
// The system's own <pthread.h>, and the one call that only the device's C library declares.
#pragma once

#include_next <pthread.h>
#include <sys/types.h>

#ifdef __cplusplus
extern "C" pid_t pthread_gettid_np(pthread_t thread);
#endif
