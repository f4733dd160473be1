// SPDX-License-Identifier: Apache-2.0
// One thread that does what it is given, in order.
#pragma once

#include <chrono>
#include <functional>
#include <memory>

#include "host/vppservice/Worker.h"

namespace qoz::host::vppservice {

// Whoever must not wait, such as the thread that reads a bus, hands its work over to one. Jobs own
// what they work on; one that is dropped is destroyed without a lock. Callable on any thread.
class SerialExecutor {
  public:
    // Throws std::system_error when there is no thread to be had.
    SerialExecutor();
    ~SerialExecutor() { stop(std::chrono::milliseconds(0)); }

    SerialExecutor(const SerialExecutor&) = delete;
    SerialExecutor& operator=(const SerialExecutor&) = delete;

    // Dropped when the executor has been stopped, or has its last job.
    void post(std::function<void()> job);

    // Drops what waits; this one still runs, after the job under way.
    void postLast(std::function<void()> job);

    // Drops what waits and waits for what runs; past the limit, or on the executor itself, it does
    // not. Not for use from two threads at once.
    void stop(std::chrono::milliseconds limit);

  private:
    struct Queue;
    const std::shared_ptr<Queue> mQueue;
    Worker mWorker;
};

}  // namespace qoz::host::vppservice
