// One thread that does what it is given, in order.
#pragma once

#include "host/vppservice/Worker.h"

#include <chrono>
#include <functional>
#include <memory>

namespace qoz::host::vppd {

// The thread that reads the bus hands over to lanes and never waits itself: every call and every
// reply of the process goes through it.
class Lane {
  public:
    Lane();
    ~Lane() { stop(std::chrono::milliseconds(0)); }

    Lane(const Lane&) = delete;
    Lane& operator=(const Lane&) = delete;

    // Dropped when the lane has been stopped. Jobs own what they work on.
    void post(std::function<void()> job);

    // Drops what waits and waits for what runs; past the limit, or on the lane itself, it does not.
    // Not for use from two threads at once.
    void stop(std::chrono::milliseconds limit);

  private:
    struct Queue;
    const std::shared_ptr<Queue> mQueue;
    vppservice::Worker mWorker;
};

}  // namespace qoz::host::vppd
