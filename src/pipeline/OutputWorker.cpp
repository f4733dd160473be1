// The output worker: confirms its start, starts the session, and hands finished output buffers to
// the client, so that no thread of the service ever waits for the client's code.
#include <qoz/VppComponent.h>
#include <sys/prctl.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <utility>

#include "pipeline/TraceMarker.h"
#include "session/Log.h"
#include "vpp/RecordFields.h"

namespace android {
namespace {

// The component whose worker this thread is; no component is ever reached through it.
thread_local const VppComponent* tWorkerOf = nullptr;

}  // namespace

// What the client is told of one buffer.
struct VppComponent::Delivery {
    int32_t slot;
    uint32_t valid;
    uint64_t timestamp;
    size_t left;  // still queued behind it
};

bool VppComponent::onWorkerThread() const {
    return tWorkerOf == this;
}

// For a destructor that runs on the worker, where joining would be waiting for itself.
void VppComponent::leaveWorkerThread() {
    mOBDThread.detach();
    tWorkerOf = nullptr;
}

// Waits for a command in progress.
void VppComponent::postOBDCmd(int32_t cmd) {
    const std::lock_guard lock(mOBDCmdLock);
    storeOBDCmd(cmd);
}

// The last post wins over one that the worker has not taken.
void VppComponent::storeOBDCmd(int32_t cmd) {
    const std::lock_guard lock(mOBDPostLock);
    mOBDCmd = cmd;
    mOBDCmdCond.notify_one();
}

// Deliver, from threads that must not wait for a command in progress: a request beside the command
// word, which overwrites no Start or Exit and stays until the worker has looked. Who finds one
// there has nothing to add; who adds one wakes the worker without holding what it wakes up to.
void VppComponent::requestDeliver() {
    {
        const std::lock_guard lock(mOBDPostLock);
        if (std::exchange(mDeliverRequested, true)) return;
    }
    mOBDCmdCond.notify_one();
}

void VppComponent::VppOBDworkerThread() {
    tWorkerOf = this;
    nameWorker();
    mOBDLoop = true;
    if (workUntilExit()) VPP_LOGI("%s exited", "VppOBDworkerThread");
}

void VppComponent::nameWorker() {
    std::array<char, 32> name{};
    std::snprintf(name.data(), name.size(), "VPPOBDWorker%ld", syscall(SYS_gettid));
    prctl(PR_SET_NAME, name.data());
    VPP_LOGI("%s started, name: %s", "VppOBDworkerThread", name.data());
}

// The component is kept alive while a command is carried out, even when the client lets go of it
// from within a callback. False: that was the last reference, and the component is gone.
bool VppComponent::workUntilExit() {
    while (mOBDThreadRunning.load(std::memory_order_acquire) && mOBDLoop) {
        awaitOBDWork();
        std::shared_ptr<VppComponent> alive = weak_from_this().lock();
        carryOutPosted();
        alive.reset();
        if (tWorkerOf == nullptr) return false;
    }
    return true;
}

void VppComponent::awaitOBDWork() {
    std::unique_lock lock(mOBDPostLock);
    const base::ScopedLockAssertion held(mOBDPostLock);
    mOBDCmdCond.wait(lock, [this]() REQUIRES(mOBDPostLock) {
        return mOBDCmd != OBD_CMD_NONE || mDeliverRequested;
    });
}

void VppComponent::carryOutPosted() {
    const std::lock_guard lock(mOBDCmdLock);
    int32_t cmd = OBD_CMD_NONE;
    bool deliver = false;
    {
        const std::lock_guard post(mOBDPostLock);
        cmd = std::exchange(mOBDCmd, OBD_CMD_NONE);
        deliver = std::exchange(mDeliverRequested, false);
    }
    if (cmd != OBD_CMD_NONE) carryOut(cmd);
    if (deliver) carryOut(OBD_CMD_DELIVER);
}

void VppComponent::carryOut(int32_t cmd) {
    switch (cmd) {
        case OBD_CMD_INIT:
            carryOutInit();
            break;
        case OBD_CMD_START:
            carryOutStart();
            break;
        case OBD_CMD_DELIVER:
            queueOBD();
            break;
        case OBD_CMD_EXIT:
            carryOutExit();
            break;
        default:
            VPP_LOGE("%s: Unrecognized cmd %d", "VppOBDworkerThread", cmd);
    }
}

void VppComponent::carryOutInit() {
    VPP_LOGI("%s: Init", "VppOBDworkerThread");
    const std::lock_guard lock(mOBDStateLock);
    mOBDThreadReady = true;
    mOBDStateCond.notify_one();
}

void VppComponent::carryOutStart() {
    if (processStart_l(mWidth, mHeight, mFormat)) {
        VPP_LOGD("VPP processStart_l success");
    } else {
        VPP_LOGE("VPP processStart_l failure, cancel the output buffer buffer");
    }
    const std::lock_guard lock(mOBDStateLock);
    mStartPending = false;
    mStartDone = true;
    mOBDStateCond.notify_one();
}

// What is queued still reaches the client, and nobody waits for a start that this Exit has
// overwritten.
void VppComponent::carryOutExit() {
    queueOBD();
    mOBDLoop = false;
    const std::lock_guard lock(mOBDStateLock);
    mStartPending = false;
    mOBDStateCond.notify_one();
}

// One delivery run: until the queue is empty.
void VppComponent::queueOBD() {
    ATRACE_NAME("queueOBD");
    Delivery next{};
    while (takeOBD(&next)) {
        VPP_LOGI("%s: %d VPPOBD buffer in Queue, get buffer, slot %d", "queueOBD",
                 static_cast<int>(next.left), next.slot);
        VPP_TRACE_MARKER(64, "%s: %d buffer in Queue", "queueOBD", static_cast<int>(next.left));
        giveBack(0, next.slot, next.valid, next.timestamp);
        finishOBD();
    }
}

bool VppComponent::takeOBD(Delivery* delivery) {
    const std::lock_guard lock(mVppOBDQueueLock);
    if (mVppOBDQueue.empty()) return false;
    mCurrentOBD = mVppOBDQueue.front();
    mVppOBDQueue.pop_front();
    *delivery = {.slot = static_cast<int32_t>(mCurrentOBD->cookie),
                 .valid = mCurrentOBD->pixelFilledLen != 0 ? 1U : 0U,
                 .timestamp = unsignedOf(mCurrentOBD->timestamp),
                 .left = mVppOBDQueue.size()};
    return true;
}

void VppComponent::finishOBD() {
    const std::lock_guard lock(mVppOBDQueueLock);
    mCurrentOBD = nullptr;
    mVppOBDQueueCond.notify_one();
}

// Waits, bounded, until the client has been given everything that is queued.
bool VppComponent::drainOBDQueue() {
    requestDeliver();
    std::unique_lock lock(mVppOBDQueueLock);
    const base::ScopedLockAssertion held(mVppOBDQueueLock);
    if (mVppOBDQueueCond.wait_until(lock, std::chrono::steady_clock::now() + mWaitLimit,
                                    [this]() REQUIRES(mVppOBDQueueLock) {
                                        return mVppOBDQueue.empty() && mCurrentOBD == nullptr;
                                    })) {
        return true;
    }
    VPP_LOGE("%s: output buffers not delivered in time", "flushsync");
    return false;
}

}  // namespace android
