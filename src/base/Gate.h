// SPDX-License-Identifier: Apache-2.0
// Keeps what uses something apart from what changes it. Private to src/.
#pragma once

#include <android-base/thread_annotations.h>

#include <condition_variable>
#include <cstdint>
#include <mutex>

#include "base/BoundedWait.h"

namespace android {

// Many may pass at a time, or one change may have the gate closed: it waits until nobody is on the
// way through, keeps others out, and opens the gate when it is done. A component has two.
//
// Output buffers pass the first, on any thread, also beside a process() of a source and from within
// a callback. A start, a flush, a reconfiguration, config() and disable() change what such a thread
// reads, and may wait for a callback that is about to queue a buffer; so they close the gate, and a
// callback does not wait at it. The service's events pass the second, which enable() closes to
// begin a session, so that no event of the previous one is under way any more.
//
// The lock is a leaf. Who has the gate closed neither passes nor closes it again before opening it.
class Gate {
  public:
    Gate() = default;
    Gate(const Gate&) = delete;
    Gate& operator=(const Gate&) = delete;

    // The way of one user through the gate. Without a budget it never waits.
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

    // The time of one change. Without a budget it does not wait for another change, though for
    // those on their way through.
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

  private:
    bool enter(WaitBudget* waits) EXCLUDES(mLock);
    void leave() EXCLUDES(mLock);
    bool close(WaitBudget* waits) EXCLUDES(mLock);
    void open() EXCLUDES(mLock);

    std::mutex mLock;
    std::condition_variable mChanged;
    uint32_t mPassing GUARDED_BY(mLock) = 0;  // on their way through
    bool mClosed GUARDED_BY(mLock) = false;   // a change waits for those, or is under way
};

}  // namespace android
