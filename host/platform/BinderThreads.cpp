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
constexpr std::chrono::milliseconds kGrowthPause{10};  // while there is not a single thread

// A call on its way, on the stack of its caller; the pool's lock guards it.
struct Call {
    const std::function<void()>& work;
    bool done = false;
    std::condition_variable finished;
};

// Never destroyed, and its threads never end: like the platform's, the pool lives as long as the
// process. Where no thread is to be had it makes do with those it has, and grows with a later call.
class Pool {
  public:
    void start() EXCLUDES(mLock) {
        const std::lock_guard lock(mLock);
        mStarted = true;
        if (grow()) return;
        for (Call* call : mWaiting)
            call->finished.notify_one();
    }

    // On the caller's thread, which waits.
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
    // Makes the threads that are still missing, as far as they are to be had; false: there is none.
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

    // A thread of the pool, for ever.
    void serve(int number) EXCLUDES(mLock) {
        pthread_setname_np(pthread_self(), ("binder:" + std::to_string(number)).c_str());
        for (;;) {
            Call* call = next();
            call->work();
            const std::lock_guard lock(mLock);
            call->done = true;
            call->finished.notify_one();  // under the lock: the caller owns the call
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
    std::condition_variable mPosted;
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
