// Keeps output buffers apart from changes of the session. Private to src/.
#pragma once

#include <android-base/thread_annotations.h>

#include <condition_variable>
#include <cstdint>
#include <mutex>

#include "base/BoundedWait.h"

namespace android {

// Any thread may queue an output buffer, also beside a process() of a source and from within a
// callback. A start, a flush, a reconfiguration and disable() change what such a thread reads, and
// may wait for a callback that is about to queue one. So they close the gate: they wait until no
// output buffer is on its way through, and keep later ones out until they open it again.
//
// The lock is a leaf. A closer does not enter, and does not close again, before it has opened.
class OutputGate {
  public:
    OutputGate() = default;
    OutputGate(const OutputGate&) = delete;
    OutputGate& operator=(const OutputGate&) = delete;

    // The way of one output buffer through the gate. Without a budget it never waits.
    class Passage {
      public:
        Passage(OutputGate& gate, WaitBudget* waits) : mGate(gate), mPassed(gate.enter(waits)) {}
        ~Passage() {
            if (mPassed) mGate.leave();
        }
        Passage(const Passage&) = delete;
        Passage& operator=(const Passage&) = delete;

        explicit operator bool() const { return mPassed; }

      private:
        OutputGate& mGate;
        const bool mPassed;
    };

    // The time of one change. Without a budget it does not wait for another change, though for
    // buffers that are on their way through.
    class Closure {
      public:
        Closure(OutputGate& gate, WaitBudget* waits) : mGate(gate), mClosed(gate.close(waits)) {}
        ~Closure() { open(); }
        Closure(const Closure&) = delete;
        Closure& operator=(const Closure&) = delete;

        explicit operator bool() const { return mClosed; }
        void open() {
            if (mClosed) mGate.open();
            mClosed = false;
        }

      private:
        OutputGate& mGate;
        bool mClosed;
    };

  private:
    bool enter(WaitBudget* waits) EXCLUDES(mLock);
    void leave() EXCLUDES(mLock);
    bool close(WaitBudget* waits) EXCLUDES(mLock);
    void open() EXCLUDES(mLock);

    std::mutex mLock;
    std::condition_variable mChanged;
    uint32_t mPassing GUARDED_BY(mLock) = 0;  // output buffers on their way through
    bool mClosed GUARDED_BY(mLock) = false;   // a change has begun, and waits for those or runs
};

}  // namespace android
