// SPDX-License-Identifier: Apache-2.0
// Ensures that an object on the bus is still registered while its calls are answered with a value.
#pragma once

#include <android-base/thread_annotations.h>

#include <condition_variable>
#include <memory>
#include <mutex>
#include <utility>

#include "host/vppd/Bus.h"

namespace qoz::host::vppd {

// When the bus library sends a value, it compares the value with the signature in the registration
// of the object. The registration may have ended by then, because answers are given later and on
// other threads. Therefore every answer with a value passes this gate, and the object closes the
// gate before it leaves the bus. An error has no signature and needs no gate.
//
// Owned by the object and by its pending answers. It keeps the connection alive for them. Callable
// on any thread. The lock is not held while an answer is sent: sending takes the lock of the bus
// library, and the thread that reads the bus enters the gate while it holds that lock.
class AnswerGate {
  public:
    explicit AnswerGate(std::shared_ptr<Bus> bus) : mBus(std::move(bus)) {}

    // Runs `send` and returns true, or returns false if the gate is closed. close() does not return
    // while `send` runs.
    template <typename Send>
    bool pass(const Send& send) EXCLUDES(mLock) {
        if (!enter()) return false;
        const Leave leave{*this};
        send();
        return true;
    }

    // Closes the gate and waits until no answer is being sent. The wait is short, because sending
    // writes to a socket without blocking. Must not be called from within pass(), nor while the
    // lock of the bus library is held.
    void close() EXCLUDES(mLock) {
        std::unique_lock lock(mLock);
        const android::base::ScopedLockAssertion held(mLock);
        mClosed = true;
        mAllLeft.wait(lock, [this]() REQUIRES(mLock) { return mWithin == 0; });
    }

  private:
    // Leaves the gate at the end of a scope, even if sending throws.
    struct Leave {
        AnswerGate& gate;
        ~Leave() { gate.leave(); }
    };

    bool enter() EXCLUDES(mLock) {
        const std::lock_guard lock(mLock);
        if (mClosed) return false;
        ++mWithin;
        return true;
    }
    void leave() EXCLUDES(mLock) {
        const std::lock_guard lock(mLock);
        if (--mWithin == 0) mAllLeft.notify_all();
    }

    const std::shared_ptr<Bus> mBus;  // not used, only kept alive
    std::mutex mLock;
    std::condition_variable mAllLeft;
    bool mClosed GUARDED_BY(mLock) = false;
    int mWithin GUARDED_BY(mLock) = 0;  // answers that are being sent
};

}  // namespace qoz::host::vppd
