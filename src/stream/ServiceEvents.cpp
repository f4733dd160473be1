// SPDX-License-Identifier: Apache-2.0
#include "stream/ServiceEvents.h"

namespace android {

using vpp::VppError;
using vpp::VppPort;

// One kind of command: the texts for its messages and the test for its answer.
struct ServiceEvents::Command {
    const char* operation;  // its name in messages
    const char* awaited;    // its name in the state dump
    const char* refused;    // logged if the service refuses it
    bool (ServiceEvents::*isAnswered)() const;
};

namespace {

// Publishes the name of a command for the state dump while the command runs, including its call
// into the service.
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

// The caller must have cleared the command's flags. `call` sends the command and returns true if
// the service accepted it.
template <typename Call>
bool ServiceEvents::carryOut(const Command& command, WaitBudget& waits, Call call) {
    const Awaiting awaiting(mAwaited, command.awaited);
    if (!call()) {
        VPP_LOGE("%s", command.refused);
        return false;
    }
    return waitFor(command, waits);
}

// An answer that arrived before the wait, even from within the call, is found by the first check of
// the condition. An answer remains valid if the service has died since.
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

// Each port answers separately, in either order. Both ports are flushed even if the first call is
// refused, so that the other port still returns its buffers.
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

// An error answer ends the wait at once. It has a flag of its own, which distinguishes it from a
// missing answer.
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

// The answer means that every queued buffer has been processed. No frame is discarded.
bool ServiceEvents::drain(WaitBudget& waits) {
    static constexpr Command kDrain{"processDrainDone_l", "drain", "failed to drain vpp",
                                    &ServiceEvents::isDrained};
    {
        const std::lock_guard<std::mutex> lock(mLock);
        mDrainDone = false;
    }
    return carryOut(kDrain, waits, [this] { return mService.drain() == VppError::VPP_OK; });
}

// Leaves the answer flags unchanged, because each command clears its own before it is sent.
void ServiceEvents::restart() {
    const std::lock_guard<std::mutex> lock(mLock);
    mServiceDied = false;
}

// Any port number other than that of the input port is taken as the output port.
void ServiceEvents::onFlushDone(const vpp::FlushDone& done) {
    const std::lock_guard<std::mutex> lock(mLock);
    const bool input = done.port == static_cast<int32_t>(VppPort::INPUT);
    (input ? mInputFlushDone : mOutputFlushDone) = true;
    mAnswered.notify_one();
}

// Wakes the waiting command on success and on failure.
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

// Ends the wait of the command in progress. Later commands do not wait.
void ServiceEvents::onServiceDied() {
    const std::lock_guard<std::mutex> lock(mLock);
    mServiceDied = true;
    mAnswered.notify_all();
}

// Never blocks: the state dump may run while another thread is stuck with the lock held. It omits
// the answers then.
std::optional<ServiceEvents::Answers> ServiceEvents::tryAnswers() const {
    if (!mLock.try_lock()) return std::nullopt;
    const Answers answers{mInputFlushDone, mOutputFlushDone, mReconfigDone, mReconfigFailed,
                          mDrainDone};
    mLock.unlock();
    return answers;
}

}  // namespace android
