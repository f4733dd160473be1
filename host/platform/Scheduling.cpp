// SPDX-License-Identifier: Apache-2.0
#include <android-base/thread_annotations.h>
#include <host/control.h>
#include <processgroup/sched_policy.h>
#include <pthread.h>
#include <utils/Timers.h>

#include <cerrno>
#include <ctime>
#include <mutex>
#include <new>

namespace qoz::host {
namespace {

// The calls to the scheduling functions, in order.
struct Calls {
    std::mutex lock;
    std::vector<SchedCall> made GUARDED_BY(lock);
};

// Never destroyed, because detached threads may still make calls when the process exits.
Calls& calls() {
    static auto* instance = new Calls;
    return *instance;
}

// Records a call and returns success. Only a device has scheduling groups and cpusets.
int recordCall(const char* call, int tid, int policy) try {
    Calls& all = calls();
    const std::lock_guard lock(all.lock);
    all.made.push_back({call, tid, policy});
    return 0;
} catch (const std::bad_alloc&) {
    return -ENOMEM;
}

}  // namespace

std::vector<SchedCall> schedCalls() {
    Calls& all = calls();
    const std::lock_guard lock(all.lock);
    return all.made;
}

}  // namespace qoz::host

int set_sched_policy(pid_t tid, SchedPolicy policy) {
    return qoz::host::recordCall("set_sched_policy", tid, policy);
}

int set_cpuset_policy(pid_t tid, SchedPolicy policy) {
    return qoz::host::recordCall("set_cpuset_policy", tid, policy);
}

bool cpusets_enabled() {
    return true;
}

// Derives the thread id from the identifier of the thread's CPU clock, in which the kernel stores
// it inverted from bit 3 up.
pid_t pthread_gettid_np(pthread_t thread) {
    clockid_t clock = 0;
    if (pthread_getcpuclockid(thread, &clock) != 0) return -1;
    return static_cast<pid_t>(~(clock >> 3));
}

nsecs_t systemTime(int clock) {
    timespec now{};
    clock_gettime(clock == SYSTEM_TIME_REALTIME ? CLOCK_REALTIME : CLOCK_MONOTONIC, &now);
    return now.tv_sec * 1000000000LL + now.tv_nsec;
}
