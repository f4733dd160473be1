// SPDX-License-Identifier: Apache-2.0
// The output worker of a component. Private to src/.
#pragma once

#include <android-base/thread_annotations.h>

#include <atomic>
#include <condition_variable>
#include <cstdint>
#include <functional>
#include <memory>
#include <mutex>
#include <thread>

#include "base/BoundedWait.h"
#include "base/ClientCallback.h"
#include "base/Log.h"
#include "pipeline/DeliveryQueue.h"

namespace android {

// The thread that starts the session when config() asks for it, and delivers finished output
// buffers to the client, so that no binder thread waits for the client's code when an output buffer
// is returned. It takes commands from a single command word; posting a command replaces one that
// has not been taken.
//
// The worker holds mCommandLock while it carries a command out, including the client's callbacks,
// so posting a command waits for that. mPostLock guards the posted command and the delivery
// request; it is a leaf and is held only briefly. It is also the mutex of the condition variable
// on which the worker sleeps, so that no wake-up is lost between the worker's check and its sleep.
// A delivery request is a flag beside the command word, so requesting a delivery never waits. While
// a thread waits in post(), the worker takes no new work, unless it had already left awaitWork()
// when that thread arrived. A post therefore waits for at most one command and one delivery run.
// Delivery runs take place on the worker, as long as there is one; flushsync() requests a run and
// waits for it.
class OutputWorker {
  public:
    enum Command : int32_t {
        kNone = 0,
        kInit = 1,
        kStart = 2,
        kDeliver = 3,  // never posted: a delivery is requested, so that it replaces no command
        kExit = 5,
    };

    // References to the component's storage; see the private members below.
    struct Members {
        std::thread& thread;
        std::atomic<bool>& running;
        bool& loop;
        int32_t& command;
        std::mutex& commandLock;
        std::condition_variable& commandCond;
        std::mutex& stateLock;
        std::condition_variable& stateCond;
        bool& ready;
        bool& startDone;
        std::atomic<bool>& startPending;
    };
    // The functions that the worker calls in the rest of the component.
    struct Hooks {
        std::function<void()> body;     // thread function; calls run()
        std::function<void()> deliver;  // one delivery run; calls deliverQueued()
        std::function<bool()> start;    // starts the session; true if that succeeded
        std::function<std::shared_ptr<void>()> keepAlive;  // a reference to the component
    };
    // For the state dump.
    struct Posted {
        int32_t command;
        bool delivery;
    };

    OutputWorker(const Members& members, Hooks hooks, DeliveryQueue& queue,
                 const ClientCallback& client, const WaitLimit& limit, const SessionLog& log);

    // Starts the thread and waits, within the limit, until the thread has carried out Init and set
    // `ready`. `ready` is never cleared, so from the second session on there is no wait. Returns
    // false if the thread could not be created, but true if the limit is exceeded.
    bool launch();
    // Makes the thread end after the work in progress and up to two more delivery runs, each of at
    // most kOutputSlots deliveries; joins the thread. Does nothing without a thread. On the worker
    // itself, detaches the thread instead.
    void stop();
    bool isRunning() const { return mRunning; }

    // The thread function: carries out posted commands until Exit.
    void run();
    // One delivery run: delivers the contents of the delivery queue to the client. After
    // kOutputSlots deliveries it gives way to a command, or ends if it is not part of the worker's
    // loop. Without a worker, any thread may run it.
    void deliverQueued();

    // Posts a command, replacing one that has not been taken. Waits, without a limit, for work in
    // progress. It must therefore not be called from within a callback on the worker, nor with the
    // component's lock held, which a Start in progress may need.
    void post(int32_t command) EXCLUDES(mCommandLock, mPostLock);
    // Requests a delivery run. Never waits; any thread may call it, including a binder thread while
    // the client is inside a callback.
    void requestDelivery() EXCLUDES(mPostLock);

    // Posts a Start. A start is pending from then until it has finished. Must not be called while
    // an earlier start is pending: the end of that start would clear mStartPending too early.
    void postStart() EXCLUDES(mCommandLock, mPostLock);
    bool isStartPending() const { return mStartPending; }
    // Waits for a pending start. Returns true if none is pending (any more) or if there is no
    // worker, false if the budget ran out. It must not be called on the worker, which would wait
    // for itself.
    bool waitForPendingStart(WaitBudget& waits, const char* operation) EXCLUDES(mStateLock);
    // Waits until the component's first start has finished.
    void waitForFirstStart(WaitBudget& waits) EXCLUDES(mStateLock);

    Posted posted() const EXCLUDES(mPostLock);

  private:
    friend class VppComponentPeer;  // defined by the tests

    // Gives the worker its real-time class and the calling thread its cpuset.
    void schedule();
    void name();
    // The thread's loop: sleeps until something is posted, takes it, and carries it out.
    bool workUntilExit();
    void awaitWork() EXCLUDES(mPostLock);
    void carryOutPosted() EXCLUDES(mCommandLock, mPostLock);
    void carryOut(int32_t command) REQUIRES(mCommandLock);
    void carryOutInit() EXCLUDES(mStateLock);
    void carryOutStart() EXCLUDES(mStateLock);
    void carryOutExit() EXCLUDES(mStateLock);
    // Posts a command without waiting. Must be called only while no thread can be carrying a
    // command out.
    void store(int32_t command) EXCLUDES(mPostLock);
    bool isPostWaiting() const EXCLUDES(mPostLock);
    bool isOnWorkerThread() const;
    void leaveWorkerThread();

    std::thread& mThread;         // used only within enable() and disable()
    std::atomic<bool>& mRunning;  // read without a lock, also by the worker before each wait
    bool& mLoop;                  // used only by the worker
    int32_t& mCommand GUARDED_BY(mPostLock);
    std::mutex& mCommandLock;
    std::condition_variable& mPosted;  // with mPostLock
    std::mutex& mStateLock;            // a leaf
    std::condition_variable& mStateChanged;
    bool& mReady GUARDED_BY(mStateLock);
    bool& mStartDone GUARDED_BY(mStateLock);
    std::atomic<bool>& mStartPending;  // read, and set before a post, without a lock

    mutable std::mutex mPostLock;
    bool mDeliveryRequested GUARDED_BY(mPostLock) = false;
    uint32_t mPostsWaiting GUARDED_BY(mPostLock) = 0;

    const Hooks mHooks;
    DeliveryQueue& mQueue;
    const ClientCallback& mClient;
    const WaitLimit& mLimit;
    const SessionLog& mLog;
};

}  // namespace android
