// SPDX-License-Identifier: Apache-2.0
// Carries out one job at a time on a thread of its own.
#pragma once

#include <condition_variable>
#include <functional>
#include <mutex>
#include <thread>
#include <utility>

namespace qoz::bench {

class SerialExecutor {
  public:
    SerialExecutor() : mThread([this] { serve(); }) {}
    ~SerialExecutor() {
        give(nullptr);
        mThread.join();
    }
    SerialExecutor(const SerialExecutor&) = delete;
    SerialExecutor& operator=(const SerialExecutor&) = delete;

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
