// SPDX-License-Identifier: Apache-2.0
// The commands that the service answers with an event. Private to src/.
#pragma once

#include <aidl/vendor/vuq/hardware/vpp/FlushDone.h>
#include <aidl/vendor/vuq/hardware/vpp/ReconfigDone.h>
#include <android-base/thread_annotations.h>

#include <atomic>
#include <condition_variable>
#include <mutex>
#include <optional>

#include "base/BoundedWait.h"
#include "base/Log.h"
#include "vpp/ServiceCalls.h"

namespace android {

// Sends flush, reconfigure and drain to the service and waits for their answers. Runs one command
// at a time, on the client's thread. Answers arrive on binder threads, or on the client's own
// thread from within the call, so the lock is not held during the call. The flags are cleared under
// the lock before the call and checked under the lock after it, so that an answer is never lost. A
// late answer to an earlier command is taken as the answer to the command in progress if that is of
// the same kind.
//
// Every wait ends with the answer, with the death of the service, or when the time budget of the
// calling operation is used up.
class ServiceEvents {
  public:
    struct Members {
        bool& reconfigDone;
        bool& inputFlushDone;
        bool& outputFlushDone;
        bool& drainDone;
        std::mutex& lock;
        std::condition_variable& answered;
    };
    // The answers received so far, for the state dump.
    struct Answers {
        bool inputFlushed;
        bool outputFlushed;
        bool reconfigured;
        bool reconfigFailed;
        bool drained;
    };

    ServiceEvents(const Members& members, ServiceCalls& service, const SessionLog& log)
        : mReconfigDone(members.reconfigDone),
          mInputFlushDone(members.inputFlushDone),
          mOutputFlushDone(members.outputFlushDone),
          mDrainDone(members.drainDone),
          mLock(members.lock),
          mAnswered(members.answered),
          mService(service),
          mLog(log) {}

    // Each operation sends one command and waits for its answer within the budget. Returns true if
    // the service accepted the command and answered with success. Logs a message and returns false
    // if the service refused the command, answered with an error, did not answer in time, or died.
    // There must be a session.
    //
    // flush() makes both ports return their buffers unprocessed. reconfigure() changes the layout
    // of both ports. drain() waits until all queued buffers are processed and returned.
    bool flush(WaitBudget& waits) EXCLUDES(mLock);
    bool reconfigure(const vpp::VppPortParam& input, const vpp::VppPortParam& output,
                     WaitBudget& waits) EXCLUDES(mLock);
    bool drain(WaitBudget& waits) EXCLUDES(mLock);

    // Begins a new session. Its service is taken to be alive.
    void restart() EXCLUDES(mLock);

    // Event handlers. They may be called from any thread, usually from a binder thread.
    void onFlushDone(const vpp::FlushDone& done) EXCLUDES(mLock);
    void onReconfigDone(const vpp::ReconfigDone& done) EXCLUDES(mLock);
    void onDrainDone() EXCLUDES(mLock);
    void onServiceDied() EXCLUDES(mLock);

    // Returns the name of the command whose answer is awaited. May be called from any thread; takes
    // no lock.
    const char* awaited() const { return mAwaited.load(std::memory_order_relaxed); }
    // Returns nullopt if another thread holds the lock.
    std::optional<Answers> tryAnswers() const;

  private:
    struct Command;
    // The steps that the three commands share: publishes the awaited command, sends it with `call`,
    // and waits for the answer.
    template <typename Call>
    bool carryOut(const Command& command, WaitBudget& waits, Call call) EXCLUDES(mLock);
    bool waitFor(const Command& command, WaitBudget& waits) EXCLUDES(mLock);
    bool isFlushed() const REQUIRES(mLock) { return mInputFlushDone && mOutputFlushDone; }
    bool isReconfigured() const REQUIRES(mLock) { return mReconfigDone || mReconfigFailed; }
    bool isDrained() const REQUIRES(mLock) { return mDrainDone; }

    bool& mReconfigDone GUARDED_BY(mLock);
    bool& mInputFlushDone GUARDED_BY(mLock);
    bool& mOutputFlushDone GUARDED_BY(mLock);
    bool& mDrainDone GUARDED_BY(mLock);
    bool mReconfigFailed GUARDED_BY(mLock) = false;  // the answer was an error
    bool mServiceDied GUARDED_BY(mLock) = false;
    std::mutex& mLock;  // a leaf lock
    std::condition_variable& mAnswered;

    ServiceCalls& mService;
    const SessionLog& mLog;
    std::atomic<const char*> mAwaited{"nothing"};  // read only by the state dump
};

}  // namespace android
