// SPDX-License-Identifier: Apache-2.0
// Waits with a time limit. Private to src/.
#pragma once

#include <android-base/thread_annotations.h>
#include <pthread.h>

#include <algorithm>
#include <chrono>
#include <condition_variable>
#include <ctime>
#include <mutex>

namespace android {

using SteadyTime = std::chrono::steady_clock::time_point;

// Sleeps until `condition` is notified or `end` has passed. Returns false if `end` has passed. May
// wake spuriously.
//
// The C++ library of some platform releases turns a wait on the steady clock into one on the wall
// clock, so setting the clock back would prolong the wait. pthread_cond_clockwait() takes the clock
// as a parameter.
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

// Waits until `done` returns true or `end` has passed, and returns the last result of `done`, which
// is called with the lock held. Does not wait if `end` has passed already. (Thread-safety analysis
// is disabled because it cannot know that `lock` is the lock that `done` requires; it still checks
// the callers.)
template <typename Done>
bool waitUntil(std::condition_variable& condition, std::unique_lock<std::mutex>& lock,
               SteadyTime end, Done done) NO_THREAD_SAFETY_ANALYSIS {
    while (!done()) {
        if (!sleepUntil(condition, lock, end)) return done();
    }
    return true;
}

// The time that all waits of one client operation share, so that the operation ends within the
// limit however many answers it waits for. Once the time is used up, further waits return at once.
// Used only by the thread that runs the operation.
class WaitBudget {
  public:
    explicit WaitBudget(std::chrono::nanoseconds limit) : mLeft(limit) {}

    // Returns whether `done` holds, which may be asked several times, but not again once it has
    // returned true. Reads the clock only if there is something to wait for: most
    // waits on a frame's way find their condition met.
    template <typename Done>
    bool wait(std::condition_variable& condition, std::unique_lock<std::mutex>& lock,
              Done done) NO_THREAD_SAFETY_ANALYSIS {
        if (done()) return true;
        const auto begin = std::chrono::steady_clock::now();
        const bool held = waitUntil(condition, lock, begin + mLeft, done);
        spendSince(begin);
        return held;
    }

    std::chrono::nanoseconds left() const { return mLeft; }
    void spendSince(SteadyTime begin) {
        const auto spent = std::chrono::steady_clock::now() - begin;
        mLeft = std::max(std::chrono::nanoseconds(0), mLeft - spent);
    }

  private:
    std::chrono::nanoseconds mLeft;
};

// The longest time that one operation may wait for the service and the worker.
struct WaitLimit {
    std::chrono::nanoseconds value = std::chrono::seconds(3);

    WaitBudget budget() const { return WaitBudget(value); }
};

}  // namespace android
