// SPDX-License-Identifier: Apache-2.0
// A thread whose owner never waits for it longer than a limit.
#pragma once

#include <chrono>
#include <functional>
#include <future>
#include <thread>

namespace qoz::host::vppservice {

// If the body does not return in time, the thread is detached and ends later. The body must
// therefore own all data that it uses. Not for use by two threads at once.
class Worker {
  public:
    Worker() = default;
    ~Worker() { finish(std::chrono::milliseconds(0)); }

    Worker(const Worker&) = delete;
    Worker& operator=(const Worker&) = delete;

    // Starts the thread. `name` is the name of the thread, a literal of at most 15 characters. Does
    // nothing if the thread runs already. Throws std::system_error if it cannot be created.
    void start(const char* name, std::function<void()> body);

    // Waits until the body returns; the caller must have told it to. After `limit`, or if called on
    // the thread itself, detaches the thread instead.
    void finish(std::chrono::milliseconds limit);

  private:
    std::thread mThread;
    std::future<void> mDone;
};

}  // namespace qoz::host::vppservice
