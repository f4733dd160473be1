// SPDX-License-Identifier: Apache-2.0
#include "host/vppservice/SerialExecutor.h"

#include <android-base/thread_annotations.h>

#include <condition_variable>
#include <deque>
#include <mutex>
#include <utility>

namespace qoz::host::vppservice {

using Jobs = std::deque<std::function<void()>>;

// The queue is shared with the thread, which may outlive the executor.
struct SerialExecutor::Queue {
    std::mutex lock;
    std::condition_variable changed;
    Jobs jobs GUARDED_BY(lock);
    bool closed GUARDED_BY(lock) = false;   // accepts no more jobs
    bool stopped GUARDED_BY(lock) = false;  // runs no more jobs

    // Waits for the next job. An empty one ends the thread.
    std::function<void()> next() EXCLUDES(lock) {
        std::unique_lock waiting(lock);
        const android::base::ScopedLockAssertion held(lock);
        while (!stopped && jobs.empty()) {
            if (closed) return {};
            changed.wait(waiting);
        }
        if (stopped) return {};
        std::function<void()> job = std::move(jobs.front());
        jobs.pop_front();
        return job;
    }

    // Accepts no more jobs after `last`. Returns the waiting jobs, so that the caller destroys them
    // without the lock.
    Jobs close(std::function<void()> last, bool stop) EXCLUDES(lock) {
        Jobs dropped;
        const std::lock_guard held(lock);
        if (!closed || stop) dropped.swap(jobs);
        if (!closed && last) jobs.push_back(std::move(last));
        closed = true;
        stopped = stopped || stop;
        changed.notify_one();
        return dropped;
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
    if (mQueue->closed) return;
    mQueue->jobs.push_back(std::move(job));
    mQueue->changed.notify_one();
}

void SerialExecutor::postLast(std::function<void()> job) {
    mQueue->close(std::move(job), false);
}

void SerialExecutor::stop(std::chrono::milliseconds limit) {
    mQueue->close({}, true);
    mWorker.finish(limit);
}

}  // namespace qoz::host::vppservice
