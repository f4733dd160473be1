// SPDX-License-Identifier: Apache-2.0
// Runs jobs one after another on one thread.
#pragma once

#include <chrono>
#include <functional>
#include <memory>

#include "host/vppservice/Worker.h"

namespace qoz::host::vppservice {

// A thread that must not wait, such as the reader of a bus, posts its work to an executor. A job
// owns all data that it uses; a dropped job is destroyed without a lock. Callable on any thread
// unless stated otherwise.
class SerialExecutor {
  public:
    // Starts the thread. Throws std::system_error if it cannot be created.
    SerialExecutor();
    ~SerialExecutor() { stop(std::chrono::milliseconds(0)); }

    SerialExecutor(const SerialExecutor&) = delete;
    SerialExecutor& operator=(const SerialExecutor&) = delete;

    // Queues a job. It is dropped after postLast() or stop().
    void post(std::function<void()> job);

    // Drops the waiting jobs and queues the last one, which runs after the job under way. Does
    // nothing after another postLast() or stop().
    void postLast(std::function<void()> job);

    // Drops the waiting jobs and waits for the job under way, at most for `limit`, and not if
    // called on the executor's thread. Not for use by two threads at once.
    void stop(std::chrono::milliseconds limit);

  private:
    struct Queue;
    const std::shared_ptr<Queue> mQueue;
    Worker mWorker;
};

}  // namespace qoz::host::vppservice
