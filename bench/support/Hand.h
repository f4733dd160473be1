// SPDX-License-Identifier: Apache-2.0
// Carries out one job at a time on a thread of its own.
#pragma once

#include <condition_variable>
#include <functional>
#include <mutex>
#include <thread>
#include <utility>

namespace qoz::bench {

class Hand {
  public:
    Hand() : mThread([this] { serve(); }) {}
    ~Hand() {
        give(nullptr);
        mThread.join();
    }
    Hand(const Hand&) = delete;
    Hand& operator=(const Hand&) = delete;

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
