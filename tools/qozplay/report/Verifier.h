// SPDX-License-Identifier: Apache-2.0
// Checks one stream as it goes: what went in says what has to come out. Knows the settings that the
// client has given and nothing of how frames are made. Owned by its session, and used on that
// session's thread alone.
#pragma once

#include <cstddef>
#include <deque>
#include <map>
#include <optional>
#include <string>
#include <vector>

#include "client/Ledger.h"
#include "qozplay/media/Frames.h"
#include "qozplay/report/PictureSummary.h"

namespace qozplay {

using qoz::client::Ledger;

class Verifier final : public FrameSink {
  public:
    // Levels, 0 to 255, by which the mean of each plane of an interpolated frame may leave the
    // range of its two neighbours'. It mixes their pixels, so rounding apart only what they cover
    // and uncover can move its mean: by 0.2 in the scene, by 1.5 in the worst of our test patterns.
    // A black frame goes far beyond, a small wrong patch does not.
    static constexpr double kDrift = 3;

    // Levels by which a cell of a source frame may differ between going in and coming out.
    // Subsampled chroma and the filters of a scaler stay below; another picture, or another matrix,
    // does not.
    static constexpr double kSourceDrift = 8;

    // The least part of its plainer neighbour's spread that an interpolated frame has: one that
    // shows a single colour, or a blur of it, has none.
    static constexpr double kLeastSpread = 0.5;

    // A source frame was taken; `interpolated` frames are asked for between the one before and it.
    // `picture` is what went in; none: it is not looked at.
    void taken(uint64_t frame, uint64_t timestamp, uint32_t interpolated,
               std::optional<PictureSummary> picture = {});
    void refused() { ++mRefused; }

    // Nothing is made between the last source frame and the next, and those still on their way may
    // not come.
    void interrupted(const std::string& why);

    // A finished frame, in the order in which they come.
    void came(uint64_t timestamp, const PictureSummary& picture);
    bool take(const FinishedFrame& frame) override;  // the same; false: something is off

    // The stream has ended.
    void close(const Ledger& ledger);

    const std::string& violation() const { return mViolation; }  // the first one; empty: none
    std::string summary() const;                                 // what was checked, how often

  private:
    struct Source {
        uint64_t frame;
        uint64_t timestamp;                     // microseconds
        uint32_t interpolated;                  // frames due before it
        std::string why;                        // none are due; empty: no reason
        std::optional<PictureSummary> picture;  // none: it is not looked at
        bool mayStayAway = false;
    };

    void violate(std::string sentence);
    void skipCleared(uint64_t timestamp);
    void interpolatedCame(uint64_t timestamp, const PictureSummary& picture);
    void sourceCame(const PictureSummary& picture);
    void checkSource(const Source& sent, const PictureSummary& picture);
    void checkInterpolated(const PictureSummary& between, const PictureSummary& after);

    std::deque<Source> mDue;
    std::optional<Source> mPrevious;       // the source frame that came last, as it came
    std::optional<uint64_t> mLast;         // of all frames that came
    std::vector<PictureSummary> mBetween;  // the frames interpolated since then
    std::string mWhy;                      // the next interval is empty; empty: it is not
    bool mAnyTaken = false;
    std::string mViolation;

    uint64_t mSources = 0;
    uint64_t mInterpolated = 0;
    uint64_t mIntervals = 0;  // with all the frames asked for
    uint64_t mCleared = 0;
    uint64_t mRefused = 0;
    std::map<std::string, uint64_t> mEmpty;  // intervals without frames, by reason
    double mDriftSeen = 0;
    double mSourceDriftSeen = 0;
    uint64_t mBuffers = 0;  // that came back
};

}  // namespace qozplay
