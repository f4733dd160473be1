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

// Sends flush, reconfigure and drain, and waits for their answers: one command at a time, on the
// client's thread. The answers arrive on binder threads, or on the client's own thread from within
// the call, so the lock is let go for the call: the flags are cleared under it before, and looked
// at under it afterwards, so that no answer is lost whenever it comes. An answer that arrives too
// late for its command counts for the next one of its kind.
//
// Every wait ends: with the answer, with the death of the service, or with the budget of the
// operation that waits.
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
    // What has been answered so far, for the state dump.
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

    // Each sends one command and waits for its answer for as long as the budget lasts. True when
    // the service took the command and has answered it with success. False, with a message: it
    // refused, it answered with an error, it did not answer in time, or it has died. They need a
    // session.
    //
    // flush: both ports return their buffers unprocessed. reconfigure: both ports change their
    // layout. drain: everything that is queued is processed and returned.
    bool flush(WaitBudget& waits) EXCLUDES(mLock);
    bool reconfigure(const vpp::VppPortParam& input, const vpp::VppPortParam& output,
                     WaitBudget& waits) EXCLUDES(mLock);
    bool drain(WaitBudget& waits) EXCLUDES(mLock);

    // A session begins, whose service is alive.
    void restart() EXCLUDES(mLock);

    // From binder threads.
    void onFlushDone(const vpp::FlushDone& done) EXCLUDES(mLock);
    void onReconfigDone(const vpp::ReconfigDone& done) EXCLUDES(mLock);
    void onDrainDone() EXCLUDES(mLock);
    void onServiceDied() EXCLUDES(mLock);

    // The command whose answer is awaited; any thread, without a lock.
    const char* awaited() const { return mAwaited.load(std::memory_order_relaxed); }
    // Nothing while the lock is in use.
    std::optional<Answers> tryAnswers() const;

  private:
    struct Command;
    // What the three commands share: says what is awaited, asks the service by `call`, and waits.
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
    std::mutex& mLock;  // a leaf
    std::condition_variable& mAnswered;

    ServiceCalls& mService;
    const SessionLog& mLog;
    std::atomic<const char*> mAwaited{"nothing"};  // for the state dump alone
};

}  // namespace android
