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

// The worker that runs on this thread. The pointer is only compared, never dereferenced.
thread_local const OutputWorker* tThisWorker = nullptr;

// The number of deliveries after which a run yields to a waiting command, so that a service that
// keeps returning outputs cannot delay a command forever. As there are that many output slots, a
// run delivers at least what a well-behaved service had returned when the run began.
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
    // Init replaces any command that was posted while there was no worker. No command is in
    // progress, so there is none to wait for. enable() holds the component's lock, so post() must
    // not be used here: it takes mCommandLock, and the worker takes these two locks in the opposite
    // order when it carries out a Start.
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

// Follows the platform's rules for threads that feed a display. If the real-time class is refused,
// that is logged and the worker runs without it.
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

// Exit replaces a Start that has not been taken; carryOutExit() then wakes the threads that wait
// for that Start.
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

// Used when the worker's loop releases the last reference to the component, after the client has
// released its own. Joining would make the thread wait for itself.
void OutputWorker::leaveWorkerThread() {
    mThread.detach();
    tThisWorker = nullptr;
}

void OutputWorker::store(int32_t command) {
    const std::lock_guard<std::mutex> lock(mPostLock);
    mCommand = command;
    mPosted.notify_one();
}

// Increments mPostsWaiting before it waits for the command lock, so that the worker leaves the lock
// free between two commands, however many deliveries are requested.
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

// Sets mStartPending before posting, so that any thread that sees the command also sees the flag.
void OutputWorker::postStart() {
    mStartPending.store(true, std::memory_order_release);
    post(kStart);
}

// Does nothing if a request is pending already. Notifies the worker after releasing the lock, so
// that the worker does not wake up only to wait for it.
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

// Sets the thread name, which the platform's tools show; the kernel keeps its first 15 characters.
void OutputWorker::name() {
    std::array<char, 32> name{};
    std::snprintf(name.data(), name.size(), "VPPOBDWorker%ld", syscall(SYS_gettid));
    prctl(PR_SET_NAME, name.data());
    VPP_LOGI("VppOBDworkerThread started, name: %s", name.data());
}

// Keeps the component alive while a command is carried out, even if the client releases it from
// within a callback. Returns false if the loop held the last reference and the component has been
// destroyed.
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

// Checks the command and the delivery request under the lock that it sleeps under, so that no
// wake-up is lost.
void OutputWorker::awaitWork() {
    std::unique_lock<std::mutex> lock(mPostLock);
    const base::ScopedLockAssertion held(mPostLock);
    mPosted.wait(lock, [this]() REQUIRES(mPostLock) {
        return mPostsWaiting == 0 && (mCommand != kNone || mDeliveryRequested);
    });
}

// Carries out the command first, then a requested delivery. An Exit itself delivers what was
// returned before it.
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

// Tells launch() that the thread is running.
void OutputWorker::carryOutInit() {
    VPP_LOGI("VppOBDworkerThread: Init");
    const std::lock_guard<std::mutex> lock(mStateLock);
    mReady = true;
    mStateChanged.notify_all();
}

// Wakes all waiting threads, because they may wait for different conditions.
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

// Delivers what is queued, and releases the threads in waitForPendingStart() whose start this Exit
// has replaced.
void OutputWorker::carryOutExit() {
    mLoop = false;
    mHooks.deliver();
    const std::lock_guard<std::mutex> lock(mStateLock);
    mStartPending = false;
    mStateChanged.notify_all();
}

// Runs until the queue is empty. After kMaxBeforeCommand deliveries a run of the worker ends early
// as soon as a thread waits in post(), and requests another run. The run that the worker makes at
// Exit and those of other threads end then in any case, because their callers must go on.
void OutputWorker::deliverQueued() {
    ATRACE_NAME("queueOBD");
    DeliveryQueue::Delivery next{};
    for (size_t delivered = 0; mQueue.take(&next); ++delivered) {
        VPP_LOGI("queueOBD: %d VPPOBD buffer in Queue, get buffer, slot %d",
                 static_cast<int>(next.left), next.slot);
        VPP_TRACE_MARKER(64, "%s: %d buffer in Queue", "queueOBD", static_cast<int>(next.left));
        mClient.deliver(next.slot, next.filled, next.timestamp);
        mQueue.finish();
        if (delivered + 1 < kMaxBeforeCommand) continue;
        const bool isLooping = isOnWorkerThread() && mLoop;
        if (isLooping && !isPostWaiting()) continue;
        if (isLooping) requestDelivery();
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

// Waits for the first start in the component's life, not in the session: mStartDone is never
// cleared, so after the worker's first Start this always returns at once, in later sessions too.
void OutputWorker::waitForFirstStart(WaitBudget& waits) {
    std::unique_lock<std::mutex> lock(mStateLock);
    const base::ScopedLockAssertion held(mStateLock);
    waits.wait(mStateChanged, lock, [this]() REQUIRES(mStateLock) { return mStartDone; });
}

}  // namespace android
