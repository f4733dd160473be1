// SPDX-License-Identifier: Apache-2.0
// Carries out jobs on a thread of its own, for a hand-over and no more: a job that has not been
// taken is replaced by the next.
#pragma once

#include <condition_variable>
#include <functional>
#include <mutex>
#include <thread>
#include <utility>

namespace qoz::bench {

class SingleJobThread {
  public:
    SingleJobThread() : mThread([this] { serve(); }) {}
    ~SingleJobThread() {
        give(nullptr);
        mThread.join();
    }
    SingleJobThread(const SingleJobThread&) = delete;
    SingleJobThread& operator=(const SingleJobThread&) = delete;

    void give(std::function<void()> job) {
        const std::lock_guard lock(mLock);
        mJob = std::move(job);
        mGiven = true;
        mCond.notify_one();
    }

  private:
    void serve() {
        std::unique_lock lock(mLock);
        for (;;) {
            mCond.wait(lock, [this] { return mGiven; });
            mGiven = false;
            const auto job = std::move(mJob);
            if (!job) return;
            lock.unlock();
            job();
            lock.lock();
        }
    }
    std::mutex mLock;
    std::condition_variable mCond;
    std::function<void()> mJob;
    bool mGiven = false;
    std::thread mThread;
};

}  // namespace qoz::bench
