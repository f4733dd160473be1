// SPDX-License-Identifier: Apache-2.0
#include "base/Gate.h"

namespace android {

bool Gate::tryEnter() {
    uint32_t state = mState.load(std::memory_order_relaxed);
    while ((state & kClosed) == 0) {
        if (mState.compare_exchange_weak(state, state + 1, std::memory_order_acquire,
                                         std::memory_order_relaxed)) {
            return true;
        }
    }
    return false;
}

// Without a budget, returns false at once if the gate is closed.
bool Gate::enter(WaitBudget* waits) {
    if (tryEnter()) return true;
    if (waits == nullptr) return false;
    std::unique_lock<std::mutex> lock(mLock);
    return waits->wait(mChanged, lock, [this] { return tryEnter(); });
}

// A thread that waits for the users sets its flag before it reads their number, and holds the lock
// from then until it sleeps. A leaving user therefore either is no longer counted, or sees the flag
// and, once it has the lock, finds the thread asleep.
void Gate::leave() {
    const uint32_t before = mState.fetch_sub(1, std::memory_order_acq_rel);
    if ((before & (kClosed | kAwaited)) == 0) return;
    const std::lock_guard<std::mutex> lock(mLock);
    mChanged.notify_all();
}

// Waits first until no other change has the gate closed, then closes it to new users, then waits
// for the users inside. If they do not leave in time, it reopens the gate and returns false.
bool Gate::close(WaitBudget* waits) {
    std::unique_lock<std::mutex> lock(mLock);
    const auto isOpen = [this] { return (mState.load(std::memory_order_acquire) & kClosed) == 0; };
    if (waits == nullptr ? !isOpen() : !waits->wait(mChanged, lock, isOpen)) return false;
    mState.fetch_or(kClosed, std::memory_order_acq_rel);  // from here the number only decreases
    WaitBudget own = WaitLimit().budget();
    WaitBudget& budget = waits == nullptr ? own : *waits;
    if (budget.wait(mChanged, lock, [this] { return passing() == 0; })) return true;
    mState.fetch_and(~kClosed, std::memory_order_acq_rel);
    mChanged.notify_all();
    return false;
}

bool Gate::settle(WaitBudget& waits) {
    std::unique_lock<std::mutex> lock(mLock);
    mState.fetch_or(kAwaited, std::memory_order_acq_rel);
    const bool settled = waits.wait(mChanged, lock, [this] { return passing() == 0; });
    mState.fetch_and(~kAwaited, std::memory_order_acq_rel);
    return settled;
}

void Gate::open() {
    const std::lock_guard<std::mutex> lock(mLock);
    mState.fetch_and(~kClosed, std::memory_order_acq_rel);
    mChanged.notify_all();
}

}  // namespace android
