// SPDX-License-Identifier: Apache-2.0
// Applies armed faults to the operations and callbacks of the service.
#pragma once

#include <android-base/thread_annotations.h>
#include <android/binder_auto_utils.h>

#include <chrono>
#include <condition_variable>
#include <functional>
#include <future>
#include <memory>
#include <mutex>
#include <optional>

#include "host/vppservice/Types.h"

namespace qoz::host::vppservice {

// How the callback that answers an operation is delivered. Within applies to the callbacks of
// flush, reconfigure and drain. Untold is the manner of an operation that is carried out although
// its client is told that it failed; a buffer so queued may be queued again.
enum class Manner { Plain, Drop, Twice, Unknown, Swap, Stray, Within, Untold };

// Passes the callback that answers a command to the thread whose call gave the command. That thread
// makes the callback before its call returns, just as binder lets a waiting thread serve a nested
// call. If the session ends first, the promise is broken.
using NestedCall = std::promise<std::packaged_task<void()>>;

// How a command is answered. `within` is set only for Manner::Within.
struct Answer {
    Manner manner = Manner::Plain;
    std::shared_ptr<NestedCall> within = nullptr;
};

// The effect of a fault on an operation or a callback.
struct FaultEffect {
    bool lost = false;               // a transport error; nothing is carried out
    std::optional<VppError> answer;  // returned as the answer; the operation is not carried out
    bool done = false;               // carries the operation out before it returns `answer`
    Manner manner = Manner::Plain;
    std::chrono::milliseconds delay{0};
};

// A sleep that the end of its owner cuts short. Callable on any thread; after end() nobody sleeps.
// The lock is a leaf.
class Pause {
  public:
    void sleepFor(std::chrono::milliseconds time) EXCLUDES(mLock);
    void end() EXCLUDES(mLock);

  private:
    std::mutex mLock;
    std::condition_variable mCond;
    bool mEnded GUARDED_BY(mLock) = false;
};

// Translates an armed fault into its effect on an operation. The service has one, shared by its
// sessions and their dispatchers. Callable on any thread.
class FaultInjector {
  public:
    // `die` ends the service. It is called on the thread of the operation that the fault is armed
    // for. It must not wait, because that thread may hold locks of the client.
    explicit FaultInjector(std::function<void()> die) : mDie(std::move(die)) {}

    // Takes the fault that is armed for this call of `operation`, by whichever session, and returns
    // its effect.
    FaultEffect effectOn(const char* operation) const;

  private:
    const std::function<void()> mDie;
};

}  // namespace qoz::host::vppservice
