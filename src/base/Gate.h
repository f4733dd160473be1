// SPDX-License-Identifier: Apache-2.0
// A gate between the users of shared state and the operations that change it. Private to src/.
#pragma once

#include <android-base/thread_annotations.h>

#include <atomic>
#include <condition_variable>
#include <cstdint>
#include <mutex>

#include "base/BoundedWait.h"

namespace android {

// Any number of users may pass the gate at the same time, or one change may keep it closed. A
// change waits until no user is passing, keeps new users out, and reopens the gate when it is done.
// A component has two gates.
//
// The first gate is for threads that queue an output buffer; they may run beside a process() of a
// source and from within a callback. A start, a flush, a reconfiguration, config() and disable()
// change the state that such a thread reads, so they close the gate. They may also be waiting for a
// callback that is about to queue a buffer; therefore a callback does not wait at the gate.
//
// The second gate is for the service's events. enable() closes it to begin a session, so that no
// event of the previous session is still being handled. disable() leaves it open, because a service
// may still send events, but waits for those that are being handled.
//
// The lock is a leaf. A thread that has closed the gate must reopen it before it passes or closes
// it again.
class Gate {
  public:
    Gate() = default;
    Gate(const Gate&) = delete;
    Gate& operator=(const Gate&) = delete;

    // One user inside the gate, for the lifetime of the object. Without a budget the constructor
    // never waits.
    class Passage {
      public:
        Passage(Gate& gate, WaitBudget* waits) : mGate(gate), mPassed(gate.enter(waits)) {}
        ~Passage() {
            if (mPassed) mGate.leave();
        }
        Passage(const Passage&) = delete;
        Passage& operator=(const Passage&) = delete;

        explicit operator bool() const { return mPassed; }

      private:
        Gate& mGate;
        const bool mPassed;
    };

    // One change, which keeps the gate closed for the lifetime of the object. Without a budget the
    // constructor does not wait for another change, but it does wait for the users inside.
    class Closure {
      public:
        Closure(Gate& gate, WaitBudget* waits) : mGate(gate), mClosed(gate.close(waits)) {}
        ~Closure() { open(); }
        Closure(const Closure&) = delete;
        Closure& operator=(const Closure&) = delete;

        explicit operator bool() const { return mClosed; }
        void open() {
            if (mClosed) mGate.open();
            mClosed = false;
        }

      private:
        Gate& mGate;
        bool mClosed;
    };

    // Waits, within the budget, until no user is passing; the gate stays open. Returns false if
    // some still are. One thread at a time may call it.
    bool settle(WaitBudget& waits) EXCLUDES(mLock);

  private:
    bool enter(WaitBudget* waits) EXCLUDES(mLock);
    void leave() EXCLUDES(mLock);
    bool close(WaitBudget* waits) EXCLUDES(mLock);
    void open() EXCLUDES(mLock);

    bool tryEnter();
    uint32_t passing() const { return mState.load(std::memory_order_acquire) & kCount; }

    // The number of users inside the gate, and two flags. Users change the number without the lock,
    // so that an open gate costs two atomic operations a buffer; the flags are changed under it.
    static constexpr uint32_t kClosed = 1U << 31;  // a change waits for the users or is in progress
    static constexpr uint32_t kAwaited = 1U << 30;  // settle() waits for the users
    static constexpr uint32_t kCount = kAwaited - 1;
    std::atomic<uint32_t> mState{0};

    std::mutex mLock;  // used with mChanged by threads that wait
    std::condition_variable mChanged;
};

}  // namespace android
