// What a session shows of itself while it runs. Its own thread writes, any thread reads; relaxed,
// as each figure stands for itself.
#pragma once

#include "FrameTracker.h"

#include <array>
#include <atomic>
#include <cstdint>
#include <vector>

namespace qozplay {

class Gauges {
  public:
    static constexpr size_t kLatencies = 256;  // kept

    struct Reading {
        uint64_t in = 0;
        uint64_t own = 0;
        uint64_t made = 0;
        size_t underWay = 0;
        std::vector<double> latencies;  // milliseconds, of the last frames, oldest first
    };

    void follow(const FrameTracker& tracker);
    Reading read() const;

    // Asks the session to end as at the end of its input.
    void requestStop() { mStop.store(true, std::memory_order_relaxed); }
    bool stopRequested() const { return mStop.load(std::memory_order_relaxed); }

  private:
    std::atomic<uint64_t> mIn{0};
    std::atomic<uint64_t> mOwn{0};
    std::atomic<uint64_t> mMade{0};
    std::atomic<size_t> mUnderWay{0};
    std::array<std::atomic<float>, kLatencies> mLatencies{};
    std::atomic<size_t> mCount{0};  // latencies, ever
    std::atomic<bool> mStop{false};
};

}  // namespace qozplay
