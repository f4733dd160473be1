#pragma once

enum SchedPolicy {
    SP_DEFAULT = -1,
    SP_BACKGROUND = 0,
    SP_FOREGROUND = 1,
    SP_SYSTEM = 2,
};

// `tid` 0 stands for the calling thread. 0, or a negative errno.
int set_sched_policy(int tid, SchedPolicy policy);
int set_cpuset_policy(int tid, SchedPolicy policy);
bool cpusets_enabled();
