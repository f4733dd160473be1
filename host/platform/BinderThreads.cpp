// SPDX-License-Identifier: Apache-2.0
#include <android-base/thread_annotations.h>
#include <android/binder_process.h>
#include <host/platform/BinderThreads.h>
#include <pthread.h>

#include <chrono>
#include <condition_variable>
#include <deque>
#include <mutex>
#include <string>
#include <system_error>
#include <thread>
#include <vector>

namespace qoz::host {
namespace {

constexpr int kThreads = 8;
constexpr std::chrono::milliseconds kGrowthPause{10};  // between attempts to create a first thread

// A call that waits for a thread of the pool or runs on one. It is on the stack of its caller, who
// waits for `finished`; the pool's lock guards `done`.
struct Call {
    const std::function<void()>& work;
    bool done = false;
    std::condition_variable finished;
};

// The pool is never destroyed and its threads never end, as on a device. If not all threads can be
// created, the pool works with those that it has and tries to create the others at the next call.
class Pool {
  public:
    // If no thread can be created, the callers that already wait are woken and try it themselves.
    void start() EXCLUDES(mLock) {
        const std::lock_guard lock(mLock);
        mStarted = true;
        if (grow()) return;
        for (Call* call : mWaiting)
            call->finished.notify_one();
    }

    // Runs on the caller's thread, which waits until a thread of the pool has run `work`.
    void run(const std::function<void()>& work) EXCLUDES(mLock) {
        Call call{.work = work, .finished = {}};
        std::unique_lock lock(mLock);
        const android::base::ScopedLockAssertion held(mLock);
        mWaiting.push_back(&call);
        mPosted.notify_one();
        while (!call.done) {
            if (mStarted && !grow()) {
                call.finished.wait_for(lock, kGrowthPause);
            } else {
                call.finished.wait(lock, [&]() REQUIRES(mLock) {
                    return call.done || (mStarted && mThreads == 0);
                });
            }
        }
    }

  private:
    // Creates the missing threads, or as many as possible. Returns false if the pool has no thread.
    bool grow() REQUIRES(mLock) {
        try {
            for (; mThreads < kThreads; ++mThreads) {
                std::thread([this, number = mThreads + 1] { serve(number); }).detach();
            }
        } catch (const std::system_error&) {
            return mThreads > 0;
        }
        return true;
    }

    // The body of each thread of the pool. Does not return.
    void serve(int number) EXCLUDES(mLock) {
        pthread_setname_np(pthread_self(), ("binder:" + std::to_string(number)).c_str());
        for (;;) {
            Call* call = next();
            call->work();
            const std::lock_guard lock(mLock);
            call->done = true;
            // Under the lock, because the caller destroys the call as soon as it sees `done`.
            call->finished.notify_one();
        }
    }

    Call* next() EXCLUDES(mLock) {
        std::unique_lock lock(mLock);
        const android::base::ScopedLockAssertion held(mLock);
        mPosted.wait(lock, [this]() REQUIRES(mLock) { return !mWaiting.empty(); });
        Call* call = mWaiting.front();
        mWaiting.pop_front();
        return call;
    }

    std::mutex mLock;
    std::condition_variable mPosted;  // notified when a call is added to mWaiting
    std::deque<Call*> mWaiting GUARDED_BY(mLock);
    bool mStarted GUARDED_BY(mLock) = false;
    int mThreads GUARDED_BY(mLock) = 0;
};

Pool& pool() {
    static auto* instance = new Pool;
    return *instance;
}

}  // namespace

void callOnBinderThread(const std::function<void()>& call) {
    pool().run(call);
}

}  // namespace qoz::host

void ABinderProcess_startThreadPool() {
    qoz::host::pool().start();
}
