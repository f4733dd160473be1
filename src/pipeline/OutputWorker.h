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

// Confirms its own start, starts the session, and gives the client its finished output buffers, so
// that no thread of the service ever waits for the client's code. It takes commands from a single
// command word; a post replaces a command that has not been taken.
//
// mCommandLock is held while a command is carried out, the client's callbacks included, so posting
// a command waits for that. What has been posted is under mPostLock, a leaf that is held only for a
// moment and that the worker sleeps under: a request for a delivery, which is kept beside the word,
// waits for nothing, and no wake-up falls between the worker's look and its sleep. The worker does
// not take mCommandLock while somebody waits for it to post.
class OutputWorker {
  public:
    enum Command : int32_t {
        kNone = 0,
        kInit = 1,
        kStart = 2,
        kDeliver = 3,
        kExit = 5,
    };

    // The component's storage; the private members below say what each is for.
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
    // What the worker does for the rest of the component.
    struct Hooks {
        std::function<void()> body;                        // of the thread: runs run()
        std::function<void()> deliver;                     // one delivery run: deliverQueued()
        std::function<bool()> start;                       // the session; true: it is ACTIVE
        std::function<std::shared_ptr<void>()> keepAlive;  // the component
    };
    // For the state dump.
    struct Posted {
        int32_t command;
        bool delivery;
    };

    OutputWorker(const Members& members, Hooks hooks, DeliveryQueue& queue,
                 const ClientCallback& client, const WaitLimit& limit, const SessionLog& log);

    // Starts the thread and waits, bounded, for its answer to Init; no answer in time is no error.
    // False: the thread could not be made.
    bool launch();
    // Has the thread give the client what is queued, end, and be joined. Nothing when there is
    // none.
    void stop();
    bool isRunning() const { return mRunning; }

    // The thread's body: carries out what is posted until Exit.
    void run();
    // One delivery run, on the worker: gives the client what the delivery queue holds.
    void deliverQueued();

    // Posts a command in place of one that has not been taken. Waits for a command in progress, so
    // never from within a callback of the worker.
    void post(int32_t command) EXCLUDES(mCommandLock, mPostLock);
    // Has the worker make a delivery run soon. Waits for nothing: any thread, also a binder thread
    // while the client is within a callback.
    void requestDelivery() EXCLUDES(mPostLock);

    // A start that has been posted and not finished.
    void postStart() EXCLUDES(mCommandLock, mPostLock);
    bool isStartPending() const { return mStartPending; }
    // True: none is pending (any more).
    bool waitForPendingStart(WaitBudget& waits, const char* operation) EXCLUDES(mStateLock);
    // Waits for the first start that this component has finished.
    void waitForFirstStart(WaitBudget& waits) EXCLUDES(mStateLock);

    Posted posted() const EXCLUDES(mPostLock);

  private:
    friend class VppComponentPeer;  // defined by the tests

    // Gives the thread its real-time class, and the calling thread its cpuset.
    void schedule();
    void name();
    // The loop of the thread: sleep, take what is posted, carry it out.
    bool workUntilExit();
    void awaitWork() EXCLUDES(mPostLock);
    void carryOutPosted() EXCLUDES(mCommandLock, mPostLock);
    void carryOut(int32_t command) REQUIRES(mCommandLock);
    void carryOutInit() EXCLUDES(mStateLock);
    void carryOutStart() EXCLUDES(mStateLock);
    void carryOutExit() EXCLUDES(mStateLock);
    // Posts without waiting; only while there is no thread that could be carrying a command out.
    void store(int32_t command) EXCLUDES(mPostLock);
    bool isPostWaiting() const EXCLUDES(mPostLock);
    bool isOnWorkerThread() const;
    void leaveWorkerThread();

    std::thread& mThread;         // of whoever enables and disables
    std::atomic<bool>& mRunning;  // the worker looks before each wait, others without a lock
    bool& mLoop;                  // the worker's own
    int32_t& mCommand GUARDED_BY(mPostLock);
    std::mutex& mCommandLock;
    std::condition_variable& mPosted;  // with mPostLock
    std::mutex& mStateLock;            // a leaf
    std::condition_variable& mStateChanged;
    bool& mReady GUARDED_BY(mStateLock);
    bool& mStartDone GUARDED_BY(mStateLock);
    std::atomic<bool>& mStartPending;  // also read without a lock

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
