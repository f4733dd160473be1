// SPDX-License-Identifier: Apache-2.0
// A thread that can always be ended.
#pragma once

#include <chrono>
#include <functional>
#include <future>
#include <thread>

namespace qoz::host::vppservice {

// The body must own what it works on: a thread that does not return in time is let go and runs out
// by itself. Not for use from two threads at once.
class Worker {
  public:
    Worker() = default;
    ~Worker() { finish(std::chrono::milliseconds(0)); }

    Worker(const Worker&) = delete;
    Worker& operator=(const Worker&) = delete;

    // `name` is the thread's: a literal of at most 15 characters. No effect while it runs. Throws
    // std::system_error when there is no thread to be had.
    void start(const char* name, std::function<void()> body);

    // Waits for the body, which has been told to return; past `limit`, or on the thread itself, it
    // does not.
    void finish(std::chrono::milliseconds limit);

  private:
    std::thread mThread;
    std::future<void> mDone;
};

}  // namespace qoz::host::vppservice
