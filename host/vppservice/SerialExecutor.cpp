#include "host/vppservice/SerialExecutor.h"

#include <condition_variable>
#include <deque>
#include <mutex>
#include <utility>

namespace qoz::host::vppservice {

struct SerialExecutor::Queue {
    std::mutex lock;
    std::condition_variable changed;
    std::deque<std::function<void()>> jobs;
    bool stopped = false;

    // Empty: the end.
    std::function<void()> next() {
        std::unique_lock held(lock);
        changed.wait(held, [this] { return stopped || !jobs.empty(); });
        if (stopped) return {};
        std::function<void()> job = std::move(jobs.front());
        jobs.pop_front();
        return job;
    }
};

SerialExecutor::SerialExecutor() : mQueue(std::make_shared<Queue>()) {
    mWorker.start("vpp executor", [queue = mQueue] {
        while (const std::function<void()> job = queue->next()) {
            job();
        }
    });
}

void SerialExecutor::post(std::function<void()> job) {
    const std::lock_guard held(mQueue->lock);
    if (mQueue->stopped) return;
    mQueue->jobs.push_back(std::move(job));
    mQueue->changed.notify_one();
}

void SerialExecutor::stop(std::chrono::milliseconds limit) {
    std::deque<std::function<void()>> dropped;  // ends without the lock: jobs own clients
    {
        const std::lock_guard held(mQueue->lock);
        mQueue->stopped = true;
        dropped.swap(mQueue->jobs);
        mQueue->changed.notify_one();
    }
    mWorker.finish(limit);
}

}  // namespace qoz::host::vppservice
