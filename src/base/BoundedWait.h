// Waits that end. Private to src/.
#pragma once

#include <pthread.h>

#include <chrono>
#include <condition_variable>
#include <ctime>
#include <mutex>

namespace android {

using SteadyTime = std::chrono::steady_clock::time_point;

// Sleeps until `condition` is notified or `end` has passed; false: it has passed. May wake early.
//
// The C++ library of some platform releases turns a wait on the steady clock into one on the wall
// clock, which setting the clock back prolongs. pthread_cond_clockwait() names the clock.
inline bool sleepUntil(std::condition_variable& condition, std::unique_lock<std::mutex>& lock,
                       SteadyTime end) {
    constexpr long kNanosInSecond = 1'000'000'000;
    const auto since = std::chrono::nanoseconds(end.time_since_epoch()).count();
    timespec until{};
    until.tv_sec = static_cast<time_t>(since / kNanosInSecond);
    until.tv_nsec = static_cast<long>(since % kNanosInSecond);
    return pthread_cond_clockwait(condition.native_handle(), lock.mutex()->native_handle(),
                                  CLOCK_MONOTONIC, &until) == 0;
}

// Waits until `done` holds or `end` has passed; the last answer of `done`, which is asked with the
// lock held. An end that has passed already is no wait.
template <typename Done>
bool waitUntil(std::condition_variable& condition, std::unique_lock<std::mutex>& lock,
               SteadyTime end, Done done) {
    while (!done()) {
        if (!sleepUntil(condition, lock, end)) return done();
    }
    return true;
}

}  // namespace android
