// SPDX-License-Identifier: Apache-2.0
// Waits that end. Private to src/.
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
// lock held. An end that has passed already is no wait. (The analysis of lock annotations cannot
// know that `lock` holds what `done` requires; the callers' side of it is analysed.)
template <typename Done>
bool waitUntil(std::condition_variable& condition, std::unique_lock<std::mutex>& lock,
               SteadyTime end, Done done) NO_THREAD_SAFETY_ANALYSIS {
    while (!done()) {
        if (!sleepUntil(condition, lock, end)) return done();
    }
    return true;
}

// The time that all waits of one operation of the client share, so that the operation ends within
// the limit however many answers it waits for. What finds the time used up does not wait. Belongs
// to the thread that runs the operation.
class WaitBudget {
  public:
    explicit WaitBudget(std::chrono::nanoseconds limit) : mLeft(limit) {}

    template <typename Done>
    bool wait(std::condition_variable& condition, std::unique_lock<std::mutex>& lock, Done done) {
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

// How long one operation may wait for the service and for the worker.
struct WaitLimit {
    std::chrono::nanoseconds value = std::chrono::seconds(3);

    WaitBudget budget() const { return WaitBudget(value); }
};

}  // namespace android
