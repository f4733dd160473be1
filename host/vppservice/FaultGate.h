// Where armed faults meet the service: one judgement for each call, whichever the call.
#pragma once

#include "host/vppservice/Types.h"

#include <android/binder_auto_utils.h>

#include <chrono>
#include <condition_variable>
#include <functional>
#include <mutex>
#include <optional>

namespace qoz::host::vppservice {

// How an answer that comes later, as a callback, is to come.
enum class Manner { Plain, Drop, Twice, Unknown, Swap, Stray };

struct Verdict {
    bool lost = false;               // fails below its result; nothing is done
    std::optional<VppError> answer;  // given in place of doing anything
    bool done = false;               // or after it has been done
    Manner manner = Manner::Plain;
    std::chrono::milliseconds delay{0};
};

// A pause that the end of its owner cuts short.
class Pause {
  public:
    void sleepFor(std::chrono::milliseconds time);
    void end();

  private:
    std::mutex mLock;
    std::condition_variable mCond;
    bool mEnded = false;
};

class FaultGate {
  public:
    // `die` ends the service; called on the thread of the call that was to die, which may hold
    // locks of the client, so it must not wait.
    explicit FaultGate(std::function<void()> die) : mDie(std::move(die)) {}

    Verdict judge(const char* operation) const;

  private:
    std::function<void()> mDie;
};

}  // namespace qoz::host::vppservice
