#include "qozplay/report/Verifier.h"

#include <algorithm>
#include <numeric>
#include <utility>

namespace qozplay {
namespace {

std::string counted(uint64_t count, const char* noun) {
    return format("%llu %s%s", big(count), noun, count == 1 ? "" : "s");
}

std::string at(uint64_t timestamp) {
    return format("%.3f ms", static_cast<double>(timestamp) / 1000);
}

double meanLuma(const Nv12View& view) {
    uint64_t sum = 0;
    for (uint32_t y = 0; y < view.size.height; ++y) {
        const uint8_t* row = view.luma + static_cast<size_t>(y) * static_cast<size_t>(view.stride);
        sum = std::accumulate(row, row + view.size.width, sum);
    }
    return static_cast<double>(sum) / (static_cast<double>(view.size.width) * view.size.height);
}

}  // namespace

void Verifier::taken(uint64_t frame, uint64_t timestamp, uint32_t interpolated) {
    const bool follows = mAnyTaken && mWhy.empty();
    mDue.push_back({frame, timestamp, follows ? interpolated : 0, std::exchange(mWhy, {})});
    mAnyTaken = true;
}

void Verifier::interrupted(const std::string& why) {
    for (Source& source : mDue) {
        source.mayStayAway = true;
    }
    if (mAnyTaken) mWhy = why;
}

bool Verifier::take(const FinishedFrame& frame) {
    came(frame.timestamp, meanLuma(frame.picture));
    return mViolation.empty();
}

void Verifier::came(uint64_t timestamp, double luma) {
    if (!mViolation.empty()) return;
    if (mLast == timestamp) return violate("the frame of " + at(timestamp) + " came out twice");
    if (mLast && timestamp < *mLast) {
        return violate("the frame of " + at(timestamp) + " came out after that of " + at(*mLast));
    }
    mLast = timestamp;
    skipCleared(timestamp);
    if (mDue.empty()) {
        return violate("a frame of " + at(timestamp) + " came out after all source frames");
    }
    const Source& next = mDue.front();
    if (timestamp > next.timestamp) {
        return violate(
            format("source frame %llu did not come out before the frame of ", big(next.frame)) +
            at(timestamp));
    }
    if (timestamp == next.timestamp) {
        sourceCame(luma);
    } else {
        interpolatedCame(timestamp, luma);
    }
}

void Verifier::skipCleared(uint64_t timestamp) {
    while (!mDue.empty() && mDue.front().mayStayAway && mDue.front().timestamp < timestamp) {
        mDue.pop_front();
        mBetween.clear();
        ++mCleared;
    }
}

void Verifier::interpolatedCame(uint64_t timestamp, double luma) {
    const Source& next = mDue.front();
    mBetween.push_back(luma);
    const uint64_t index = mBetween.size();
    if (!mPrevious || index > next.interpolated) {
        return violate(
            format("source frame %llu comes after %u interpolated frames, and one more came, of ",
                   big(next.frame), next.interpolated) +
            at(timestamp));
    }
    const uint64_t length = next.timestamp - mPrevious->timestamp;
    const uint64_t due = mPrevious->timestamp + length * index / (next.interpolated + 1);
    if (std::max(due, timestamp) - std::min(due, timestamp) > 1) {
        return violate(
            format("interpolated frame %llu of %u before source frame %llu has the time ",
                   big(index), next.interpolated, big(next.frame)) +
            at(timestamp) + ", not " + at(due));
    }
    ++mInterpolated;
}

void Verifier::sourceCame(double luma) {
    const Source next = std::move(mDue.front());
    mDue.pop_front();
    if (mBetween.size() != next.interpolated) {
        return violate(format("%zu of %u interpolated frames came out before source frame %llu",
                              mBetween.size(), next.interpolated, big(next.frame)));
    }
    if (!next.why.empty()) {
        ++mEmpty[next.why];
    } else if (mPrevious) {
        checkBrightness(luma);
        ++mIntervals;
    }
    ++mSources;
    mBetween.clear();
    mPrevious = SourceSeen{next.frame, next.timestamp, luma};
}

void Verifier::checkBrightness(double luma) {
    const auto [low, high] = std::minmax(mPrevious->luma, luma);
    for (const double mean : mBetween) {
        const double drift = std::max({low - mean, mean - high, 0.0});
        mDriftSeen = std::max(mDriftSeen, drift);
        if (drift <= kDrift) continue;
        violate(
            format("a frame interpolated after source frame %llu has a mean luma of %.1f, its "
                   "neighbours %.1f and %.1f",
                   big(mPrevious->frame), mean, mPrevious->luma, luma));
    }
}

void Verifier::close(const Ledger& ledger) {
    for (const Source& source : mDue) {
        if (source.mayStayAway) {
            ++mCleared;
        } else {
            violate(format("source frame %llu never came out", big(source.frame)));
        }
    }
    const Ledger::Totals& totals = ledger.totals();
    mBuffers = totals.returned;
    if (!ledger.settled()) {
        violate(format(
            "of %llu queued buffers %zu are outstanding, %llu were returned twice and %llu on the "
            "wrong port",
            big(totals.queued), ledger.outstanding(), big(totals.doubled), big(totals.wrongPort)));
    }
    if (mSources == 0) violate("no source frame came out");
}

void Verifier::violate(std::string sentence) {
    if (mViolation.empty()) mViolation = std::move(sentence);
}

std::string Verifier::summary() const {
    std::string text = counted(mSources, "source frame") + " once each; " +
                       counted(mInterpolated, "interpolated frame") +
                       ", evenly spaced, as many as asked for in " +
                       counted(mIntervals, "interval");
    for (const auto& [why, count] : mEmpty) {
        text += format(", none in %llu (%s)", big(count), why.c_str());
    }
    if (mCleared != 0) text += "; " + counted(mCleared, "source frame") + " cleared away";
    if (mRefused != 0) text += "; " + counted(mRefused, "source frame") + " refused";
    return text + "; " + counted(mBuffers, "buffer") +
           format(" returned once each; brightness within %.2f of the neighbours' (%.0f allowed)",
                  mDriftSeen, kDrift);
}

}  // namespace qozplay
