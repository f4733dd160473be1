// SPDX-License-Identifier: Apache-2.0
// Includes the system's <pthread.h> and declares the one function that only the C library of a
// device has.
#pragma once

#include_next <pthread.h>
#include <sys/types.h>

// Returns the kernel's id of a thread.
#ifdef __cplusplus
extern "C" pid_t pthread_gettid_np(pthread_t thread);
#endif
