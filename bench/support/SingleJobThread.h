// SPDX-License-Identifier: Apache-2.0
// A thread that carries out one job at a time.
#pragma once

#include <condition_variable>
#include <functional>
#include <mutex>
#include <thread>
#include <utility>

namespace qoz::bench {

// There is no queue: a new job replaces one that the thread has not begun. Callers wait until the
// effect of their job is visible before they give the next.
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
