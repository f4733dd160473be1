// SPDX-License-Identifier: Apache-2.0
// A clip of which only every N-th frame is given away. The others are what the interpolated frames
// ought to look like, and each one made is scored against them; so are the peers to beat. Owned by
// the player; used on the one session's thread.
#pragma once

#include <nlohmann/json_fwd.hpp>

#include <array>
#include <cstdint>
#include <deque>
#include <memory>
#include <string>
#include <vector>

#include "qozplay/media/Frames.h"

namespace qozplay {

// How like the truth a picture is, in luma.
struct Likeness {
    double psnr = 0;  // dB; 128 for the same picture
    double ssim = 0;
};

// Of the interpolated frame; of the given frame before it, once more; of the given frames around
// it, mixed by distance.
using Likenesses = std::array<Likeness, 3>;

struct Score {
    uint64_t frame;      // of the clip
    uint64_t timestamp;  // of the interpolated frame, microseconds
    Likenesses made;
};

struct Scores {
    std::vector<Score> frames;
    uint64_t notInterpolated = 0;  // frames held out whose place stayed empty
};

class ReferenceScore final : public FrameSource, public FrameSink {
  public:
    static constexpr uint32_t kMinSide = 16;  // pixels; SSIM needs a few windows

    // Every `step`-th frame of the clip is given away, from the first on. Throws BadInput.
    ReferenceScore(std::unique_ptr<FrameSource> clip, uint32_t step);

    std::optional<int64_t> next(uint8_t* rgba, size_t stride) override;
    AudioTracks* audio() override { return mClip->audio(); }

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

    Picture pictureOf(uint64_t frame, int64_t nanoseconds, const uint8_t* rgba,
                      size_t stride) const;
    Likeness compare(const uint8_t* luma, int stride, const Luma& truth) const;
    const Luma& lumaOf(uint64_t frame) const;
    void score(const FinishedFrame& frame, Picture& truth);
    void passed(uint64_t timestamp);

    const std::unique_ptr<FrameSource> mClip;
    const Size mSize;
    const uint32_t mStep;
    uint64_t mNext = 0;             // frame of the clip
    std::deque<Picture> mPictures;  // of the last frame that came out and later
    std::vector<uint8_t> mSpare;    // a frame that is not given away, or a blend
    Scores mScores;
};

// A table, a line a frame, and mean and least of each column.
std::string toText(const Scores& scores);
nlohmann::json toJson(const Scores& scores);

}  // namespace qozplay
