// SPDX-License-Identifier: Apache-2.0
// Where armed faults meet the service: what each call, and each callback, is to suffer.
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

// How an answer that comes later, as a callback, is to come.
enum class Manner { Plain, Drop, Twice, Unknown, Swap, Stray, Within };

// The callback that answers a command, handed to the thread whose call gave the command: it makes
// the callback before the call returns, as binder has the waiting thread serve a nested call. The
// promise is broken when the session ends first.
using NestedCall = std::promise<std::packaged_task<void()>>;

// How the answer to a command is to come; `within` is set for that manner alone.
struct Answer {
    Manner manner = Manner::Plain;
    std::shared_ptr<NestedCall> within = nullptr;
};

struct FaultEffect {
    bool lost = false;               // fails below its result; nothing is done
    std::optional<VppError> answer;  // given in place of doing anything
    bool done = false;               // or after it has been done
    Manner manner = Manner::Plain;
    std::chrono::milliseconds delay{0};
};

// A pause that the end of its owner cuts short. Callable on any thread; after end() nobody sleeps.
class Pause {
  public:
    void sleepFor(std::chrono::milliseconds time) EXCLUDES(mLock);
    void end() EXCLUDES(mLock);

  private:
    std::mutex mLock;
    std::condition_variable mCond;
    bool mEnded GUARDED_BY(mLock) = false;
};

// Translates what the table of armed faults says about a call into what the service does with it.
// One for a service, shared by its sessions and their dispatchers. Callable on any thread.
class FaultInjector {
  public:
    // `die` ends the service; called on the thread of the call that was to die, which may hold
    // locks of the client, so it must not wait.
    explicit FaultInjector(std::function<void()> die) : mDie(std::move(die)) {}

    // Counts this call of `operation`, by whichever session.
    FaultEffect effectOn(const char* operation) const;

  private:
    const std::function<void()> mDie;
};

}  // namespace qoz::host::vppservice
