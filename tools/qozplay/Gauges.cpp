#include "Gauges.h"

#include <algorithm>

namespace qozplay {

void Gauges::follow(const FrameTracker& tracker) {
    const FrameTracker::Tally& tally = tracker.tally();
    mIn.store(tally.in, std::memory_order_relaxed);
    mOwn.store(tally.real, std::memory_order_relaxed);
    mMade.store(tally.made, std::memory_order_relaxed);
    mUnderWay.store(tracker.underWay(), std::memory_order_relaxed);
    size_t count = mCount.load(std::memory_order_relaxed);
    for (; count < tally.latencies.size(); ++count) {
        mLatencies[count % kLatencies].store(static_cast<float>(tally.latencies[count]),
                                             std::memory_order_relaxed);
    }
    mCount.store(count, std::memory_order_relaxed);
}

Gauges::Reading Gauges::read() const {
    Reading reading;
    reading.in = mIn.load(std::memory_order_relaxed);
    reading.own = mOwn.load(std::memory_order_relaxed);
    reading.made = mMade.load(std::memory_order_relaxed);
    reading.underWay = mUnderWay.load(std::memory_order_relaxed);
    const size_t count = mCount.load(std::memory_order_relaxed);
    for (size_t i = count - std::min(count, kLatencies); i < count; ++i)
        reading.latencies.push_back(mLatencies[i % kLatencies].load(std::memory_order_relaxed));
    return reading;
}

}  // namespace qozplay
