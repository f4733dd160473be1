// SPDX-License-Identifier: Apache-2.0
#include "pipeline/OutputWorker.h"

#include <processgroup/sched_policy.h>
#include <pthread.h>
#include <sys/prctl.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <array>
#include <exception>
#include <utility>

#include "base/TraceMarker.h"

namespace android {
namespace {

// The worker that this thread is; none is ever reached through it.
thread_local const OutputWorker* tThisWorker = nullptr;

// A delivery run gives way to a waiting command after as many buffers: a service that goes on
// returning outputs keeps no command waiting, and what a well-behaved one has returned before is
// delivered first.
constexpr size_t kMaxBeforeCommand = QOZBufferInfo::kOutputSlots;

}  // namespace

OutputWorker::OutputWorker(const Members& members, Hooks hooks, DeliveryQueue& queue,
                           const ClientCallback& client, const WaitLimit& limit,
                           const SessionLog& log)
    : mThread(members.thread),
      mRunning(members.running),
      mLoop(members.loop),
      mCommand(members.command),
      mCommandLock(members.commandLock),
      mPosted(members.commandCond),
      mStateLock(members.stateLock),
      mStateChanged(members.stateCond),
      mReady(members.ready),
      mStartDone(members.startDone),
      mStartPending(members.startPending),
      mHooks(std::move(hooks)),
      mQueue(queue),
      mClient(client),
      mLimit(limit),
      mLog(log) {}

bool OutputWorker::launch() {
    // In place of what was posted while there was no worker. No command is in progress, so there is
    // none to wait for, and mCommandLock is never taken with the component's lock held: the worker
    // has them the other way round when it carries out a Start.
    store(kInit);
    {
        const std::lock_guard<std::mutex> lock(mPostLock);
        mDeliveryRequested = false;
    }
    mStartPending = false;
    mRunning.store(true, std::memory_order_release);
    try {
        mThread = std::thread(mHooks.body);
    } catch (const std::exception& error) {
        VPP_LOGE("cannot start the output worker: %s", error.what());
        mRunning = false;
        return false;
    }
    schedule();
    WaitBudget waits = mLimit.budget();
    std::unique_lock<std::mutex> lock(mStateLock);
    const base::ScopedLockAssertion held(mStateLock);
    waits.wait(mStateChanged, lock, [this]() REQUIRES(mStateLock) { return mReady; });
    return true;
}

// By the platform's rules for threads that feed a display. A refused real-time class is reported
// and the worker runs without it.
void OutputWorker::schedule() {
    const pthread_t worker = mThread.native_handle();
    sched_param priority{};
    priority.sched_priority = 2;
    if (pthread_setschedparam(worker, SCHED_FIFO, &priority) != 0) {
        VPP_LOGE_BARE("Couldn't set SCHED_FIFO for EventThread");
    }
    set_sched_policy(pthread_gettid_np(worker), SP_FOREGROUND);
    if (cpusets_enabled()) set_cpuset_policy(0, SP_SYSTEM);  // the calling thread
}

// Exit replaces a Start that has not been taken; carryOutExit() tells those who wait for it.
void OutputWorker::stop() {
    if (mThread.joinable()) {
        if (isOnWorkerThread()) {
            leaveWorkerThread();
        } else {
            post(kExit);
            mThread.join();
        }
    }
    mRunning = false;
}

bool OutputWorker::isOnWorkerThread() const {
    return tThisWorker == this;
}

// For a component whose last owner lets go within a callback of the worker, where joining would be
// waiting for itself.
void OutputWorker::leaveWorkerThread() {
    mThread.detach();
    tThisWorker = nullptr;
}

void OutputWorker::store(int32_t command) {
    const std::lock_guard<std::mutex> lock(mPostLock);
    mCommand = command;
    mPosted.notify_one();
}

// Announces itself before it waits for the command lock, so that the worker lets it have the lock
// between two commands, however many deliveries are requested.
void OutputWorker::post(int32_t command) {
    {
        const std::lock_guard<std::mutex> lock(mPostLock);
        ++mPostsWaiting;
    }
    const std::lock_guard<std::mutex> lock(mCommandLock);
    const std::lock_guard<std::mutex> postLock(mPostLock);
    --mPostsWaiting;
    mCommand = command;
    mPosted.notify_one();
}

// The pending mark first: whoever sees the command sees the mark.
void OutputWorker::postStart() {
    mStartPending.store(true, std::memory_order_release);
    post(kStart);
}

// If a request is pending there is nothing to do. The worker is notified after the lock has been
// released, so that it does not wake up only to wait for the lock.
void OutputWorker::requestDelivery() {
    {
        const std::lock_guard<std::mutex> lock(mPostLock);
        if (std::exchange(mDeliveryRequested, true)) return;
    }
    mPosted.notify_one();
}

bool OutputWorker::isPostWaiting() const {
    const std::lock_guard<std::mutex> lock(mPostLock);
    return mPostsWaiting != 0;
}

OutputWorker::Posted OutputWorker::posted() const {
    const std::lock_guard<std::mutex> lock(mPostLock);
    return {mCommand, mDeliveryRequested};
}

void OutputWorker::run() {
    tThisWorker = this;
    name();
    mLoop = true;
    if (workUntilExit()) VPP_LOGI("VppOBDworkerThread exited");
}

// The name shows in the tools of the platform; the kernel keeps its first 15 characters.
void OutputWorker::name() {
    std::array<char, 32> name{};
    std::snprintf(name.data(), name.size(), "VPPOBDWorker%ld", syscall(SYS_gettid));
    prctl(PR_SET_NAME, name.data());
    VPP_LOGI("VppOBDworkerThread started, name: %s", name.data());
}

// The component is kept alive while a command is carried out, even when the client lets go of it
// from within a callback. False: that was the last reference, and the component is gone.
bool OutputWorker::workUntilExit() {
    while (mRunning.load(std::memory_order_acquire) && mLoop) {
        awaitWork();
        std::shared_ptr<void> alive = mHooks.keepAlive();
        carryOutPosted();
        alive.reset();
        if (tThisWorker == nullptr) return false;
    }
    return true;
}

// Word and request are looked at under the lock that the thread sleeps under: no wake-up is lost.
void OutputWorker::awaitWork() {
    std::unique_lock<std::mutex> lock(mPostLock);
    const base::ScopedLockAssertion held(mPostLock);
    mPosted.wait(lock, [this]() REQUIRES(mPostLock) {
        return mPostsWaiting == 0 && (mCommand != kNone || mDeliveryRequested);
    });
}

// Command first, then a requested delivery: what was returned before an Exit is delivered by the
// Exit itself.
void OutputWorker::carryOutPosted() {
    const std::lock_guard<std::mutex> lock(mCommandLock);
    int32_t command = kNone;
    bool deliver = false;
    {
        const std::lock_guard<std::mutex> postLock(mPostLock);
        command = std::exchange(mCommand, static_cast<int32_t>(kNone));
        deliver = std::exchange(mDeliveryRequested, false);
    }
    if (command != kNone) carryOut(command);
    if (deliver) carryOut(kDeliver);
}

void OutputWorker::carryOut(int32_t command) {
    switch (command) {
        case kInit:
            carryOutInit();
            break;
        case kStart:
            carryOutStart();
            break;
        case kDeliver:
            mHooks.deliver();
            break;
        case kExit:
            carryOutExit();
            break;
        default:
            VPP_LOGE("VppOBDworkerThread: Unrecognized cmd %d", command);
    }
}

// Tells launch() that the thread runs.
void OutputWorker::carryOutInit() {
    VPP_LOGI("VppOBDworkerThread: Init");
    const std::lock_guard<std::mutex> lock(mStateLock);
    mReady = true;
    mStateChanged.notify_all();
}

// Several threads may wait, each for something else: all are woken.
void OutputWorker::carryOutStart() {
    if (mHooks.start()) {
        VPP_LOGD("VPP processStart_l success");
    } else {
        VPP_LOGE("VPP processStart_l failure, cancel the output buffer buffer");
    }
    const std::lock_guard<std::mutex> lock(mStateLock);
    mStartPending = false;
    mStartDone = true;
    mStateChanged.notify_all();
}

// What is queued still reaches the client, and nobody waits for a start that this Exit has
// replaced.
void OutputWorker::carryOutExit() {
    mLoop = false;
    mHooks.deliver();
    const std::lock_guard<std::mutex> lock(mStateLock);
    mStartPending = false;
    mStateChanged.notify_all();
}

// Until the queue is empty, or, when a command waits or this is the last run, until those are
// delivered that may have been there when the run began.
void OutputWorker::deliverQueued() {
    ATRACE_NAME("queueOBD");
    DeliveryQueue::Delivery next{};
    for (size_t delivered = 0; mQueue.take(&next); ++delivered) {
        VPP_LOGI("queueOBD: %d VPPOBD buffer in Queue, get buffer, slot %d",
                 static_cast<int>(next.left), next.slot);
        VPP_TRACE_MARKER(64, "%s: %d buffer in Queue", "queueOBD", static_cast<int>(next.left));
        mClient.deliver(next.slot, next.filled, next.timestamp);
        mQueue.finish();
        if (delivered < kMaxBeforeCommand || (mLoop && !isPostWaiting())) continue;
        if (mLoop) requestDelivery();
        return;
    }
}

bool OutputWorker::waitForPendingStart(WaitBudget& waits, const char* operation) {
    if (!mStartPending || !mRunning) return true;
    std::unique_lock<std::mutex> lock(mStateLock);
    const base::ScopedLockAssertion held(mStateLock);
    if (waits.wait(mStateChanged, lock, [this] { return !mStartPending; })) return true;
    VPP_LOGE("%s: the start that config asked for is still pending", operation);
    return false;
}

// Of the component's life, not of the session's: the mark that a start has finished is never
// cleared, so this returns at once from the second session on.
void OutputWorker::waitForFirstStart(WaitBudget& waits) {
    std::unique_lock<std::mutex> lock(mStateLock);
    const base::ScopedLockAssertion held(mStateLock);
    waits.wait(mStateChanged, lock, [this]() REQUIRES(mStateLock) { return mStartDone; });
}

}  // namespace android
