// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <sys/types.h>

typedef enum {
    SP_FOREGROUND = 1,
    SP_SYSTEM = 2,
} SchedPolicy;

extern "C" {

// `tid` 0 stands for the calling thread. 0, or a negative errno.
int set_sched_policy(pid_t tid, SchedPolicy policy);
int set_cpuset_policy(pid_t tid, SchedPolicy policy);
bool cpusets_enabled();

}  // extern "C"
