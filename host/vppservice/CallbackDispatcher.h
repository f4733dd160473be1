// SPDX-License-Identifier: Apache-2.0
// Delivers the callbacks of one port to the client, in the order in which they were posted unless a
// fault changes it.
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

// One call that the client's object is to receive.
struct Callback {
    enum class Kind { InputDone, OutputDone, FlushDone, ReconfigDone, DrainDone };

    Kind kind = Kind::DrainDone;
    Manner manner = Manner::Plain;
    VppBuffer buffer = {};  // for the two buffer returns
    VppPort port = {};      // for a flush
    // Counts the dispatchers that an event still has to reach; null for the callbacks of one port.
    // An event of both ports is posted to both dispatchers, and the second one to reach it delivers
    // it.
    std::shared_ptr<std::atomic<int>> barrier = nullptr;
    // The thread of the client's own call that delivers the callback. If null, a binder thread
    // does.
    std::shared_ptr<NestedCall> within = nullptr;
};

// The engine owns one for each port. Its thread takes the callbacks from the queue and has a binder
// thread call the client, one call at a time and with no lock held. A callback that a fault delays
// is set aside and does not delay the callbacks behind it.
class CallbackDispatcher : public std::enable_shared_from_this<CallbackDispatcher> {
  public:
    CallbackDispatcher(std::shared_ptr<vpp::IVppCallbacks> client,
                       std::shared_ptr<FaultInjector> faults)
        : mFaults(std::move(faults)), mClient(std::move(client)) {}

    // Starts the thread. Throws std::system_error if it cannot be created; the caller may try
    // again.
    void start();
    // Queues a callback. Callable on any thread; does not wait. Does nothing after stop().
    void post(Callback callback) EXCLUDES(mLock);

    // Drops the queued callbacks, waits at most two seconds for the one under way, and releases the
    // client's object on the calling thread, which may destroy the client. If it is called from
    // within a callback of this dispatcher, it does not wait, since that callback cannot end
    // before.
    void stop() EXCLUDES(mLock);

  private:
    using Clock = std::chrono::steady_clock;

    // A callback taken from the queue, and the object that receives it.
    struct Delivery {
        Callback callback;
        std::optional<FaultEffect> effect;  // empty until a fault has been looked for
        std::shared_ptr<vpp::IVppCallbacks> to;
    };

    void run();
    bool next(Delivery* out) EXCLUDES(mLock);
    bool isDue(Delivery* delivery) EXCLUDES(mLock);
    void deliver(Delivery* delivery) const;
    void call(vpp::IVppCallbacks& to, const Callback& callback, VppError status) const;

    // Asked for each callback, unless the operation that it answers had a fault.
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
