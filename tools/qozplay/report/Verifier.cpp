// SPDX-License-Identifier: Apache-2.0
#include "qozplay/report/Verifier.h"

#include <algorithm>
#include <array>
#include <utility>

namespace qozplay {
namespace {

std::string counted(uint64_t count, const char* noun) {
    return format("%llu %s%s", big(count), noun, count == 1 ? "" : "s");
}

std::string at(uint64_t timestamp) {
    return format("%.3f ms", static_cast<double>(timestamp) / 1000);
}

constexpr std::array kPlanes{"luma", "U", "V"};

}  // namespace

void Verifier::taken(uint64_t frame, uint64_t timestamp, uint32_t interpolated,
                     std::optional<PictureSummary> picture) {
    const bool follows = mAnyTaken && mWhy.empty();
    mDue.push_back({frame, timestamp, follows ? interpolated : 0, std::exchange(mWhy, {}),
                    std::move(picture)});
    mAnyTaken = true;
}

void Verifier::interrupted(const std::string& why) {
    for (Source& source : mDue) {
        source.mayStayAway = true;
    }
    if (mAnyTaken) mWhy = why;
}

bool Verifier::take(const FinishedFrame& frame) {
    skipCleared(frame.timestamp);
    const bool known = !mDue.empty() && mDue.front().picture;
    const auto grid =
        known ? mDue.front().picture->grid() : PictureSummary::gridFor(frame.picture.size);
    came(frame.timestamp, PictureSummary::ofNv12(frame.picture, grid));
    return mViolation.empty();
}

void Verifier::came(uint64_t timestamp, const PictureSummary& picture) {
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
        sourceCame(picture);
    } else {
        interpolatedCame(timestamp, picture);
    }
}

// Skips source frames that have not come out before `timestamp` because of an event.
void Verifier::skipCleared(uint64_t timestamp) {
    while (!mDue.empty() && mDue.front().mayStayAway && mDue.front().timestamp < timestamp) {
        mDue.pop_front();
        mBetween.clear();
        ++mCleared;
    }
}

// Checks the number and the timestamp of an interpolated frame. Its picture can be checked only
// when the next source frame has come out.
void Verifier::interpolatedCame(uint64_t timestamp, const PictureSummary& picture) {
    const Source& next = mDue.front();
    mBetween.push_back(picture);
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

// Checks a source frame, and the interpolated frames since the previous one.
void Verifier::sourceCame(const PictureSummary& picture) {
    Source next = std::move(mDue.front());
    mDue.pop_front();
    if (mBetween.size() != next.interpolated) {
        return violate(format("%zu of %u interpolated frames came out before source frame %llu",
                              mBetween.size(), next.interpolated, big(next.frame)));
    }
    checkSource(next, picture);
    if (!next.why.empty()) {
        ++mEmpty[next.why];
    } else if (mPrevious) {
        for (const PictureSummary& between : mBetween)
            checkInterpolated(between, picture);
        ++mIntervals;
    }
    ++mSources;
    mBetween.clear();
    next.picture = picture;
    mPrevious = std::move(next);
}

// Compares the picture of a source frame in the output with the one in the input, plane by plane.
void Verifier::checkSource(const Source& sent, const PictureSummary& picture) {
    if (!sent.picture) return;
    const PictureSummary::Yuv difference = sent.picture->farthest(picture);
    for (size_t i = 0; i < difference.size(); ++i) {
        mSourceDriftSeen = std::max(mSourceDriftSeen, difference[i]);
        if (difference[i] <= kSourceDrift) continue;
        violate(
            format("source frame %llu came out as another picture: %s differs by %.1f in places",
                   big(sent.frame), kPlanes[i], difference[i]));
    }
}

// Checks the picture of a frame that was interpolated between mPrevious and the source frame
// `after`.
void Verifier::checkInterpolated(const PictureSummary& between, const PictureSummary& after) {
    const PictureSummary& before = *mPrevious->picture;
    const std::string which =
        format("a frame interpolated after source frame %llu ", big(mPrevious->frame));
    for (size_t i = 0; i < kPlanes.size(); ++i) {
        const double mean = between.mean()[i];
        const auto [low, high] = std::minmax({before.mean()[i], after.mean()[i]});
        const double drift = std::max({low - mean, mean - high, 0.0});
        mDriftSeen = std::max(mDriftSeen, drift);
        if (drift <= kDrift) continue;
        violate(which + format("has a mean %s of %.1f, its neighbours %.1f and %.1f", kPlanes[i],
                               mean, before.mean()[i], after.mean()[i]));
    }
    if (between.spread() >= kLeastSpread * std::min(before.spread(), after.spread()) - 1) return;
    violate(which + format("shows next to nothing: its luma spreads by %.1f, its neighbours' by "
                           "%.1f and %.1f",
                           between.spread(), before.spread(), after.spread()));
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
           format(
               " returned once each; planes within %.2f of the neighbours' (%.0f allowed), source "
               "frames within %.2f of what went in (%.0f)",
               mDriftSeen, kDrift, mSourceDriftSeen, kSourceDrift);
}

}  // namespace qozplay
