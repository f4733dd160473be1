// SPDX-License-Identifier: Apache-2.0
#include "qozplay/stream/FrameTracker.h"

#include <algorithm>

namespace qozplay {

void FrameTracker::sent(uint64_t timestamp, Clock::time_point at) {
    mSent[timestamp] = {at};
    ++mTally.in;
}

void FrameTracker::refused(uint64_t timestamp) {
    mSent.erase(timestamp);
    --mTally.in;
    ++mTally.refused;
}

bool FrameTracker::came(uint64_t timestamp, Clock::time_point at) {
    if (mLast && timestamp <= *mLast) ++mTally.backwards;
    mLast = std::max(timestamp, mLast.value_or(timestamp));

    const auto own = mSent.find(timestamp);
    const bool source = own != mSent.end();
    if (source) {
        mTally.latencies.push_back(milliseconds(at - own->second.at));
        mSent.erase(own);
        ++mTally.source;
    } else {
        ++mTally.interpolated;
    }
    for (auto earlier = mSent.begin(); earlier != mSent.lower_bound(timestamp); ++earlier) {
        if (earlier->second.state == State::UnderWay) earlier->second.state = State::Overtaken;
    }
    return source;
}

void FrameTracker::flushed() {
    for (auto& [timestamp, sent] : mSent) {
        if (sent.state == State::UnderWay) sent.state = State::Flushed;
    }
}

size_t FrameTracker::underWay() const {
    return static_cast<size_t>(std::count_if(mSent.begin(), mSent.end(), [](const auto& entry) {
        return entry.second.state == State::UnderWay;
    }));
}

FrameTracker::Tally FrameTracker::finish() {
    for (const auto& [timestamp, sent] : mSent) {
        ++(sent.state == State::Flushed ? mTally.flushed : mTally.missing);
    }
    mSent.clear();
    return mTally;
}

}  // namespace qozplay
