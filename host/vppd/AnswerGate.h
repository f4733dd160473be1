// SPDX-License-Identifier: Apache-2.0
// Whether the calls of one object on the bus can still be answered with a value.
#pragma once

#include <android-base/thread_annotations.h>

#include <condition_variable>
#include <memory>
#include <mutex>
#include <utility>

#include "host/vppd/Bus.h"

namespace qoz::host::vppd {

// The bus library compares a value with the signature that the object was registered with, when the
// value is sent. That signature ends with the registration, while an answer may come later. So each
// answer with a value passes this gate, and the object closes it before it leaves the bus. An error
// has no signature, and needs no gate.
//
// Shared by the object and the answers that it still owes; keeps the connection for both. Callable
// on any thread. Nothing is sent under the lock: the thread that reads the bus passes the gate with
// the bus library's own lock held, which sending takes.
class AnswerGate {
  public:
    explicit AnswerGate(std::shared_ptr<Bus> bus) : mBus(std::move(bus)) {}

    // Runs `send`, unless the gate is closed: then it returns false. The gate does not close
    // meanwhile.
    template <typename Send>
    bool pass(const Send& send) EXCLUDES(mLock) {
        if (!enter()) return false;
        const Leave leave{*this};
        send();
        return true;
    }

    // Returns when no answer is on its way any more, which sending alone can delay: it writes to a
    // socket that never blocks. Not for use from within pass(), nor with the bus library's lock
    // held.
    void close() EXCLUDES(mLock) {
        std::unique_lock lock(mLock);
        const android::base::ScopedLockAssertion held(mLock);
        mClosed = true;
        mAllLeft.wait(lock, [this]() REQUIRES(mLock) { return mWithin == 0; });
    }

  private:
    // Leaves at the end of the scope, also when sending throws.
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

    const std::shared_ptr<Bus> mBus;  // kept alive for answers that outlive their object
    std::mutex mLock;
    std::condition_variable mAllLeft;
    bool mClosed GUARDED_BY(mLock) = false;
    int mWithin GUARDED_BY(mLock) = 0;  // answers that are being sent
};

}  // namespace qoz::host::vppd
