// SPDX-License-Identifier: Apache-2.0
// The checks of --verify.
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

// Checks the output of one stream against its input: the order, number, timestamps and pictures of
// the frames, and the return of the buffers. It derives the expected output from the client's
// settings alone and knows nothing about the interpolation. Owned by a session and used only on its
// thread. Only the first violation is kept.
class Verifier final : public FrameSink {
  public:
    // The greatest difference, in levels from 0 to 255, between the mean of a plane of an
    // interpolated frame and the range of the means of the two source frames around it. The frame
    // consists of their pixels, so apart from rounding only covered and uncovered areas can move
    // the mean: by 0.2 in the scene, and by 1.5 in the worst test pattern. A black frame exceeds
    // the limit by far; a small wrong area does not.
    static constexpr double kDrift = 3;

    // The greatest difference, in levels, between a cell of a source frame in the input and in the
    // output. Subsampled chroma and the filters of a scaler cause smaller ones, another picture or
    // another colour matrix a greater one.
    static constexpr double kSourceDrift = 8;

    // The least spread of an interpolated frame, as a fraction of the lesser spread of the two
    // source frames around it. A frame of a single colour has no spread.
    static constexpr double kLeastSpread = 0.5;

    // Records a source frame that the component took. `interpolated` is the number of frames
    // expected between the previous source frame and this one. Without `picture`, the picture in
    // the output is not checked.
    void taken(uint64_t frame, uint64_t timestamp, uint32_t interpolated,
               std::optional<PictureSummary> picture = {});
    void refused() { ++mRefused; }

    // Records an event, such as a flush, after which the frames that are under way may not come
    // out, and no frames are interpolated between the last source frame and the next one. `why`
    // names the event in the summary.
    void interrupted(const std::string& why);

    // Both check an output frame. Frames must be passed in the order of their return. take()
    // returns false once there is a violation.
    void came(uint64_t timestamp, const PictureSummary& picture);
    bool take(const FinishedFrame& frame) override;

    // Checks, at the end of the stream, that all source frames have come out and that all buffers
    // have been returned.
    void close(const Ledger& ledger);

    const std::string& violation() const { return mViolation; }  // empty if there was none
    // Returns a sentence about the checks that were made, with their numbers.
    std::string summary() const;

  private:
    // A source frame that the component took.
    struct Source {
        uint64_t frame;
        uint64_t timestamp;                     // microseconds
        uint32_t interpolated;                  // number of frames expected before it
        std::string why;                        // the event because of which none are; else empty
        std::optional<PictureSummary> picture;  // nullopt if the picture is not checked
        bool mayStayAway = false;               // true if an event may have removed it
    };

    void violate(std::string sentence);
    void skipCleared(uint64_t timestamp);
    void interpolatedCame(uint64_t timestamp, const PictureSummary& picture);
    void sourceCame(const PictureSummary& picture);
    void checkSource(const Source& sent, const PictureSummary& picture);
    void checkInterpolated(const PictureSummary& between, const PictureSummary& after);

    std::deque<Source> mDue;               // source frames that have not come out
    std::optional<Source> mPrevious;       // the last one that did, with its output picture
    std::optional<uint64_t> mLast;         // timestamp of the last output frame
    std::vector<PictureSummary> mBetween;  // interpolated frames since mPrevious
    std::string mWhy;                      // the event that makes the next interval empty
    bool mAnyTaken = false;
    std::string mViolation;

    uint64_t mSources = 0;
    uint64_t mInterpolated = 0;
    uint64_t mIntervals = 0;  // intervals with the expected number of frames
    uint64_t mCleared = 0;
    uint64_t mRefused = 0;
    std::map<std::string, uint64_t> mEmpty;  // intervals without frames, by reason
    double mDriftSeen = 0;
    double mSourceDriftSeen = 0;
    uint64_t mBuffers = 0;  // returned buffers
};

}  // namespace qozplay
