// SPDX-License-Identifier: Apache-2.0
// What the interpolated frames ought to look like: the frames of the clip that were held back, and
// a score for each made one against them. The peers to beat are scored the same way. Owned by the
// player; source and score are used on the one session's thread.
#pragma once

#include <nlohmann/json_fwd.hpp>

#include <cstdint>
#include <deque>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "qozplay/media/FrameSink.h"
#include "qozplay/media/FrameSource.h"

namespace qozplay {

// How like the truth a picture is, in luma.
struct Likeness {
    double psnr = 0;  // dB; 128 for the same picture
    double ssim = 0;
};

struct Score {
    uint64_t frame;      // of the clip
    uint64_t timestamp;  // of the interpolated frame, microseconds
    Likeness interpolated;
    Likeness repeated;  // the given frame before it, once more
    Likeness blended;   // the given frames around it, mixed by distance
};

struct Scores {
    std::vector<Score> frames;
    uint64_t notInterpolated = 0;  // frames held out whose place stayed empty
};

class ReferenceScore final : public FrameSink {
  public:
    static constexpr uint32_t kMinSide = 16;  // pixels; SSIM needs a few windows

    // Every `step`-th frame of the clip is given away, from the first on.
    ReferenceScore(Size size, uint32_t step);

    // A frame of the clip, in order; given frames are kept as well.
    void keep(uint64_t frame, int64_t nanoseconds, const uint8_t* rgba, size_t stride);

    // A frame that came out, of the clip's size.
    bool take(const FinishedFrame& frame) override;

    const Scores& scores() const { return mScores; }

  private:
    using Luma = std::vector<uint8_t>;  // rows without padding
    struct Picture {
        uint64_t frame;
        uint64_t timestamp;  // microseconds
        Luma luma;
        bool scored = false;
    };

    Likeness compare(const uint8_t* luma, int stride, const Luma& truth) const;
    const Luma& lumaOf(uint64_t frame) const;
    void score(const FinishedFrame& frame, Picture& truth);
    void passed(uint64_t timestamp);

    const Size mSize;
    const uint32_t mStep;
    std::deque<Picture> mPictures;  // of the last frame that came out and later
    Luma mSpare;                    // chroma that nobody looks at, and blends
    Scores mScores;
};

// A clip of which only every N-th frame is given away; the truth keeps all of them.
class SubsampledSource final : public FrameSource {
  public:
    SubsampledSource(std::unique_ptr<FrameSource> clip, uint32_t step, ReferenceScore& truth);

    Size size() const override { return mClip->size(); }
    Rate rate() const override;
    std::optional<uint64_t> length() const override;
    bool next(uint8_t* rgba, size_t stride) override;
    int64_t timeOf(uint64_t) const override { return mClip->timeOf(mNext - 1); }
    AVRational sampleAspect() const override { return mClip->sampleAspect(); }
    ColourTags colourTags() const override { return mClip->colourTags(); }
    AudioTracks* audio() override { return mClip->audio(); }

  private:
    const std::unique_ptr<FrameSource> mClip;
    const uint32_t mStep;
    ReferenceScore& mReference;
    std::vector<int64_t> mHeldTimes;  // of the frames in mHeld
    std::vector<uint8_t> mHeld;  // the frames between two that are given away, rows without padding
    uint64_t mNext = 0;          // frame of the clip
};

// A table, a line a frame, and mean and least of each column.
std::string toText(const Scores& scores);
nlohmann::json toJson(const Scores& scores);

}  // namespace qozplay
