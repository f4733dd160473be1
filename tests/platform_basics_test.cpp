// SPDX-License-Identifier: Apache-2.0
// Tests of the behaviour that the library requires of the platform's basic libraries.
// scripts/check-device-build also runs them with the platform's own libraries in place of the host
// simulator's.
#include <cutils/native_handle.h>
#include <fcntl.h>
#include <gtest/gtest.h>
#include <unistd.h>
#include <utils/Errors.h>
#include <utils/RefBase.h>
#include <utils/StrongPointer.h>
#include <utils/Timers.h>

#include <atomic>
#include <cstdint>
#include <memory>
#include <thread>
#include <utility>
#include <vector>

namespace {

using android::sp;

// An object that counts its destruction.
class Counted : public android::RefBase {
  public:
    explicit Counted(int* ended) : mEnded(ended) {}

  protected:
    ~Counted() override { ++*mEnded; }

  private:
    int* mEnded;
};

TEST(StrongPointer, EndsItsObjectWithTheLastOwner) {
    int ended = 0;
    sp<Counted> first(new Counted(&ended));
    sp<Counted> second = first;
    EXPECT_EQ(first, second);
    EXPECT_EQ(first->getStrongCount(), 2);
    sp<Counted> moved = std::move(first);
    EXPECT_EQ(first, nullptr);  // NOLINT(bugprone-use-after-move): tests the state after a move
    EXPECT_EQ(moved->getStrongCount(), 2);
    moved = nullptr;
    EXPECT_EQ(ended, 0);
    sp<android::RefBase> base = second;
    second.clear();
    EXPECT_EQ(ended, 0);
    base.clear();
    EXPECT_EQ(ended, 1);
}

TEST(StrongPointer, OwnersOnManyThreadsEndItOnce) {
    int ended = 0;
    {
        const sp<Counted> shared(new Counted(&ended));
        std::vector<std::thread> owners;
        owners.reserve(4);
        for (int i = 0; i < 4; ++i) {
            owners.emplace_back([owner = shared] {
                for (int n = 0; n < 1000; ++n)
                    // NOLINTNEXTLINE(performance-unnecessary-copy-initialization): counts
                    const sp<Counted> another = owner;
            });
        }
        for (std::thread& owner : owners)
            owner.join();
    }
    EXPECT_EQ(ended, 1);
}

TEST(NativeHandle, DeletingClosesNothingAndClosingFreesNothing) {
    native_handle_t* handle = native_handle_create(1, 2);
    ASSERT_NE(handle, nullptr);
    EXPECT_EQ(handle->version, static_cast<int>(sizeof(native_handle_t)));
    EXPECT_EQ(std::pair(handle->numFds, handle->numInts), std::pair(1, 2));
    const int open = fcntl(STDERR_FILENO, F_DUPFD_CLOEXEC, 0);
    handle->data[0] = open;
    EXPECT_EQ(native_handle_close(handle), 0);
    EXPECT_EQ(fcntl(open, F_GETFD), -1) << "closed";
    const int kept = fcntl(STDERR_FILENO, F_DUPFD_CLOEXEC, 0);
    handle->data[0] = kept;
    EXPECT_EQ(native_handle_delete(handle), 0);
    EXPECT_EQ(close(kept), 0) << "still open";
}

TEST(NativeHandle, RefusesCountsOutOfRangeAndForeignVersions) {
    EXPECT_EQ(native_handle_create(-1, 0), nullptr);
    EXPECT_EQ(native_handle_create(0, -1), nullptr);
    EXPECT_EQ(native_handle_create(1025, 0), nullptr);
    native_handle_t* handle = native_handle_create(0, 0);
    ASSERT_NE(handle, nullptr);
    handle->version = 0;
    EXPECT_EQ(native_handle_close(handle), -EINVAL);
    EXPECT_EQ(native_handle_delete(handle), -EINVAL);
    handle->version = sizeof(native_handle_t);
    EXPECT_EQ(native_handle_delete(handle), 0);
}

TEST(SystemTime, CountsNanosecondsOfTheMonotonicClock) {
    timespec before{};
    timespec after{};
    clock_gettime(CLOCK_MONOTONIC, &before);
    const nsecs_t told = systemTime(SYSTEM_TIME_MONOTONIC);
    clock_gettime(CLOCK_MONOTONIC, &after);
    const auto nanoseconds = [](const timespec& time) {
        return time.tv_sec * nsecs_t{1000000000} + time.tv_nsec;
    };
    EXPECT_LE(nanoseconds(before), told);
    EXPECT_LE(told, nanoseconds(after));
}

}  // namespace
