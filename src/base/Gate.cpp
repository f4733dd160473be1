// SPDX-License-Identifier: Apache-2.0
#include "base/Gate.h"

namespace android {

// Without a budget a closed gate is an answer at once.
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

// First the gate is to be had for oneself, then it is closed to newcomers, then those on their way
// are waited for. If they do not leave in time it is opened again, and nothing has changed.
bool Gate::close(WaitBudget* waits) {
    std::unique_lock<std::mutex> lock(mLock);
    const base::ScopedLockAssertion held(mLock);
    const auto isOpen = [this]() REQUIRES(mLock) { return !mClosed; };
    if (waits == nullptr ? !isOpen() : !waits->wait(mChanged, lock, isOpen)) return false;
    mClosed = true;  // from here on nobody enters, so those on their way become fewer
    WaitBudget own = WaitLimit().budget();
    WaitBudget& budget = waits == nullptr ? own : *waits;
    if (budget.wait(mChanged, lock, [this]() REQUIRES(mLock) { return mPassing == 0; })) {
        return true;
    }
    mClosed = false;
    mChanged.notify_all();
    return false;
}

void Gate::open() {
    const std::lock_guard<std::mutex> lock(mLock);
    mClosed = false;
    mChanged.notify_all();
}

}  // namespace android
