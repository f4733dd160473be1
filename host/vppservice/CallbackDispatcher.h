// SPDX-License-Identifier: Apache-2.0
// Brings what one port has for the client to it, in the order posted.
#pragma once

#include <aidl/vendor/vuq/hardware/vpp/IVppCallbacks.h>
#include <android-base/thread_annotations.h>

#include <atomic>
#include <chrono>
#include <condition_variable>
#include <deque>
#include <map>
#include <memory>
#include <mutex>
#include <optional>

#include "host/vppservice/FaultInjector.h"
#include "host/vppservice/Types.h"
#include "host/vppservice/Worker.h"

namespace qoz::host::vppservice {

// One call of the client's object that is due.
struct Callback {
    enum class Kind { InputDone, OutputDone, FlushDone, ReconfigDone, DrainDone };

    Kind kind = Kind::DrainDone;
    Manner manner = Manner::Plain;
    VppBuffer buffer = {};  // of the two buffer returns
    VppPort port = {};      // of a flush
    // An event of both ports is posted to both dispatchers; the last one to reach it brings it.
    std::shared_ptr<std::atomic<int>> barrier = nullptr;
    // Who makes the call in place of a binder thread; null: a binder thread does.
    std::shared_ptr<NestedCall> within = nullptr;
};

// Owned by the engine of a session. It has one thread, which makes each call on a binder thread
// with no lock held. Callbacks that a fault delays wait aside and hold no other up.
class CallbackDispatcher : public std::enable_shared_from_this<CallbackDispatcher> {
  public:
    CallbackDispatcher(std::shared_ptr<vpp::IVppCallbacks> client,
                       std::shared_ptr<FaultInjector> faults)
        : mFaults(std::move(faults)), mClient(std::move(client)) {}

    // Throws std::system_error when there is no thread to be had; may be tried again.
    void start();
    void post(Callback callback) EXCLUDES(mLock);

    // Drops what is not under way, waits for what is, and lets go of the client's object on the
    // calling thread, which may destroy the client. Called from within a callback of this very
    // dispatcher it does not wait.
    void stop() EXCLUDES(mLock);

  private:
    using Clock = std::chrono::steady_clock;

    // A callback on its way, with the object that it goes to.
    struct Delivery {
        Callback callback;
        std::optional<FaultEffect> effect;  // once a fault has been looked for
        std::shared_ptr<vpp::IVppCallbacks> to;
    };

    void run();
    bool next(Delivery* out) EXCLUDES(mLock);
    bool isDue(Delivery* delivery) EXCLUDES(mLock);
    void deliver(Delivery* delivery) const;
    void call(vpp::IVppCallbacks& to, const Callback& callback, VppError status) const;

    const std::shared_ptr<FaultInjector> mFaults;

    std::mutex mLock;
    std::condition_variable mCond;
    std::deque<Callback> mPosted GUARDED_BY(mLock);
    std::multimap<Clock::time_point, Delivery> mDelayed GUARDED_BY(mLock);
    std::shared_ptr<vpp::IVppCallbacks> mClient GUARDED_BY(mLock);
    bool mStopped GUARDED_BY(mLock) = false;

    Worker mWorker;
};

}  // namespace qoz::host::vppservice
