// SPDX-License-Identifier: Apache-2.0
#include "base/Gate.h"

namespace android {

// Without a budget, returns false at once if the gate is closed.
bool Gate::enter(WaitBudget* waits) {
    std::unique_lock<std::mutex> lock(mLock);
    const base::ScopedLockAssertion held(mLock);
    const auto isOpen = [this]() REQUIRES(mLock) { return !mClosed; };
    if (waits == nullptr ? !isOpen() : !waits->wait(mChanged, lock, isOpen)) return false;
    ++mPassing;
    return true;
}

void Gate::leave() {
    const std::lock_guard<std::mutex> lock(mLock);
    --mPassing;
    mChanged.notify_all();
}

// Waits first until no other change has the gate closed, then closes it to new users, then waits
// for the users inside. If they do not leave in time, it reopens the gate and returns false.
bool Gate::close(WaitBudget* waits) {
    std::unique_lock<std::mutex> lock(mLock);
    const base::ScopedLockAssertion held(mLock);
    const auto isOpen = [this]() REQUIRES(mLock) { return !mClosed; };
    if (waits == nullptr ? !isOpen() : !waits->wait(mChanged, lock, isOpen)) return false;
    mClosed = true;  // no new user enters, so mPassing can only decrease
    WaitBudget own = WaitLimit().budget();
    WaitBudget& budget = waits == nullptr ? own : *waits;
    if (budget.wait(mChanged, lock, [this]() REQUIRES(mLock) { return mPassing == 0; })) {
        return true;
    }
    mClosed = false;
    mChanged.notify_all();
    return false;
}

void Gate::settle(WaitBudget& waits) {
    std::unique_lock<std::mutex> lock(mLock);
    const base::ScopedLockAssertion held(mLock);
    waits.wait(mChanged, lock, [this]() REQUIRES(mLock) { return mPassing == 0; });
}

void Gate::open() {
    const std::lock_guard<std::mutex> lock(mLock);
    mClosed = false;
    mChanged.notify_all();
}

}  // namespace android
