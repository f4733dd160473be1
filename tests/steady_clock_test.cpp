// SPDX-License-Identifier: Apache-2.0
// Tests that bounded waits do not depend on the wall clock. This program replaces the C library's
// timed waits: a wait on the wall clock takes an hour longer here, as if the clock were set back by
// an hour during the wait.
#include <dlfcn.h>
#include <pthread.h>

#include <atomic>
#include <cerrno>
#include <chrono>
#include <ctime>

#include "base/BoundedWait.h"
#include "support/Fixture.h"

namespace {

std::atomic<int> gSteadyWaits{0};
std::atomic<int> gWallClockWaits{0};

int waitFor(pthread_cond_t* condition, pthread_mutex_t* mutex, clockid_t clock, timespec end) {
    using Wait = int (*)(pthread_cond_t*, pthread_mutex_t*, clockid_t, const timespec*);
    static const auto real = reinterpret_cast<Wait>(dlsym(RTLD_NEXT, "pthread_cond_clockwait"));
    constexpr time_t kSetBack = 3600;
    if (clock == CLOCK_MONOTONIC) {
        ++gSteadyWaits;
    } else {
        ++gWallClockWaits;
        end.tv_sec += kSetBack;
    }
    return real(condition, mutex, clock, &end);
}

}  // namespace

extern "C" int pthread_cond_clockwait(pthread_cond_t* condition, pthread_mutex_t* mutex,
                                      clockid_t clock, const timespec* end) {
    return waitFor(condition, mutex, clock, *end);
}

extern "C" int pthread_cond_timedwait(pthread_cond_t* condition, pthread_mutex_t* mutex,
                                      const timespec* end) {
    return waitFor(condition, mutex, CLOCK_REALTIME, *end);
}

namespace qoz::test {
namespace {

using std::chrono::milliseconds;

class SteadyClock : public ComponentTest {
  protected:
    void SetUp() override {
        ComponentTest::SetUp();
        gSteadyWaits = gWallClockWaits = 0;
    }
};

TEST_F(SteadyClock, AWaitEndsAtItsTimeAndNotBefore) {
    std::mutex mutex;
    std::condition_variable condition;
    std::unique_lock lock(mutex);
    const auto end = std::chrono::steady_clock::now() + milliseconds(20);
    EXPECT_FALSE(android::waitUntil(condition, lock, end, [] { return false; }));
    EXPECT_GE(std::chrono::steady_clock::now(), end);
    EXPECT_TRUE(lock.owns_lock());
    EXPECT_GT(gSteadyWaits, 0);
    EXPECT_EQ(gWallClockWaits, 0);
}

TEST_F(SteadyClock, NoOperationWaitsForAnAnswerOnTheWallClock) {
    enableAndConfig(64, 64, {1, 0, 1, 0});
    session().silent = {"flush0", "flush1", "reconfigure", "drain"};
    peer().setWaitLimit(milliseconds(50));
    EXPECT_FALSE(peer().drain());
    vpp->flushsync();
    EXPECT_EQ(vpp->state(), VppComponent::ERROR);
    EXPECT_GT(gSteadyWaits, 0);
    EXPECT_EQ(gWallClockWaits, 0);
}

}  // namespace
}  // namespace qoz::test
