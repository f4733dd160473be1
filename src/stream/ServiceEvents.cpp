// SPDX-License-Identifier: Apache-2.0
#include "stream/ServiceEvents.h"

namespace android {

using vpp::VppError;
using vpp::VppPort;

// One kind of command: what its messages say and how its answer shows.
struct ServiceEvents::Command {
    const char* operation;  // as messages name it
    const char* awaited;    // as the state dump names it
    const char* refused;    // the message when the service does not take it
    bool (ServiceEvents::*isAnswered)() const;
};

namespace {

// Says for as long as a command runs, its call into the service included, that it does.
class Awaiting {
  public:
    Awaiting(std::atomic<const char*>& awaited, const char* command) : mAwaited(awaited) {
        mAwaited.store(command, std::memory_order_relaxed);
    }
    ~Awaiting() { mAwaited.store("nothing", std::memory_order_relaxed); }

    Awaiting(const Awaiting&) = delete;
    Awaiting& operator=(const Awaiting&) = delete;

  private:
    std::atomic<const char*>& mAwaited;
};

}  // namespace

// The caller has cleared the flags of the command. `call` asks the service; true: it took it.
template <typename Call>
bool ServiceEvents::carryOut(const Command& command, WaitBudget& waits, Call call) {
    const Awaiting awaiting(mAwaited, command.awaited);
    if (!call()) {
        VPP_LOGE("%s", command.refused);
        return false;
    }
    return waitFor(command, waits);
}

// An answer that came before the wait, even from within the call, is found at the first look. An
// answer counts also when the service has died since.
bool ServiceEvents::waitFor(const Command& command, WaitBudget& waits) {
    std::unique_lock<std::mutex> lock(mLock);
    const base::ScopedLockAssertion held(mLock);
    const auto isAnswered = [&]() REQUIRES(mLock) { return (this->*command.isAnswered)(); };
    waits.wait(mAnswered, lock, [&]() REQUIRES(mLock) { return isAnswered() || mServiceDied; });
    if (isAnswered()) return true;
    if (mServiceDied) {
        VPP_LOGE("%s: the vpp service has died", command.operation);
    } else {
        VPP_LOGE("%s: no answer from vpp", command.operation);
    }
    return false;
}

// Each port answers for itself, in any order. Both are told to flush even if the first one refuses:
// what the other holds still comes back.
bool ServiceEvents::flush(WaitBudget& waits) {
    static constexpr Command kFlush{"processFlush_l", "flush", "failed to flush vpp",
                                    &ServiceEvents::isFlushed};
    {
        const std::lock_guard<std::mutex> lock(mLock);
        mInputFlushDone = false;
        mOutputFlushDone = false;
    }
    return carryOut(kFlush, waits, [this] {
        const VppError inErr = mService.flush(VppPort::INPUT);
        const VppError outErr = mService.flush(VppPort::OUTPUT);
        return inErr == VppError::VPP_OK && outErr == VppError::VPP_OK;
    });
}

// An answer with an error ends the wait at once. It is remembered beside the flag for success, so
// that it can be told from no answer at all.
bool ServiceEvents::reconfigure(const vpp::VppPortParam& input, const vpp::VppPortParam& output,
                                WaitBudget& waits) {
    static constexpr Command kReconfigure{"processReconfig_l", "reconfigure",
                                          "failed to reconfig vpp", &ServiceEvents::isReconfigured};
    {
        const std::lock_guard<std::mutex> lock(mLock);
        mReconfigDone = false;
        mReconfigFailed = false;
    }
    const bool answered = carryOut(kReconfigure, waits, [&] {
        return mService.reconfigure(input, output) == VppError::VPP_OK;
    });
    if (!answered) return false;
    const std::lock_guard<std::mutex> lock(mLock);
    if (!mReconfigDone) VPP_LOGE("processReconfig_l: vpp answered with an error");
    return mReconfigDone;
}

// The answer says that everything queued has been processed; nothing is thrown away.
bool ServiceEvents::drain(WaitBudget& waits) {
    static constexpr Command kDrain{"processDrainDone_l", "drain", "failed to drain vpp",
                                    &ServiceEvents::isDrained};
    {
        const std::lock_guard<std::mutex> lock(mLock);
        mDrainDone = false;
    }
    return carryOut(kDrain, waits, [this] { return mService.drain() == VppError::VPP_OK; });
}

// The flags are left as they are: each command clears its own before it is sent.
void ServiceEvents::restart() {
    const std::lock_guard<std::mutex> lock(mLock);
    mServiceDied = false;
}

// Any port number but the input's counts as the output's.
void ServiceEvents::onFlushDone(const vpp::FlushDone& done) {
    const std::lock_guard<std::mutex> lock(mLock);
    const bool input = done.port == static_cast<int32_t>(VppPort::INPUT);
    (input ? mInputFlushDone : mOutputFlushDone) = true;
    mAnswered.notify_one();
}

// Wakes the waiting command in either case.
void ServiceEvents::onReconfigDone(const vpp::ReconfigDone& done) {
    const std::lock_guard<std::mutex> lock(mLock);
    const bool succeeded = done.status == static_cast<int32_t>(VppError::VPP_OK);
    (succeeded ? mReconfigDone : mReconfigFailed) = true;
    mAnswered.notify_one();
}

void ServiceEvents::onDrainDone() {
    const std::lock_guard<std::mutex> lock(mLock);
    mDrainDone = true;
    mAnswered.notify_one();
}

// Every wait ends, whatever it is for, and later commands do not wait.
void ServiceEvents::onServiceDied() {
    const std::lock_guard<std::mutex> lock(mLock);
    mServiceDied = true;
    mAnswered.notify_all();
}

// The dump may run while another thread hangs with the lock held; it does without the answers then.
std::optional<ServiceEvents::Answers> ServiceEvents::tryAnswers() const {
    if (!mLock.try_lock()) return std::nullopt;
    const Answers answers{mInputFlushDone, mOutputFlushDone, mReconfigDone, mReconfigFailed,
                          mDrainDone};
    mLock.unlock();
    return answers;
}

}  // namespace android
