// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <sys/types.h>

typedef enum {
    SP_FOREGROUND = 1,
    SP_SYSTEM = 2,
} SchedPolicy;

extern "C" {

// Set the scheduling group and the cpuset of a thread. `tid` 0 is the calling thread. Return 0 or a
// negative errno.
int set_sched_policy(pid_t tid, SchedPolicy policy);
int set_cpuset_policy(pid_t tid, SchedPolicy policy);
bool cpusets_enabled();

}  // extern "C"
