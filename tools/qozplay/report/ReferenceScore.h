// SPDX-License-Identifier: Apache-2.0
// The scores of --truth: the similarity of interpolated frames to frames of the clip.
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

// The similarity of the luma of a picture and of the frame that was held out.
struct Likeness {
    double psnr = 0;  // dB; 128 for identical pictures
    double ssim = 0;
};

// The similarities of the interpolated frame and of two simple substitutes for it: the previous
// source frame repeated, and a blend of the two source frames around it, weighted by distance.
using Likenesses = std::array<Likeness, 3>;

// The score of one interpolated frame.
struct Score {
    uint64_t frame;      // number of the held-out frame in the clip
    uint64_t timestamp;  // of the interpolated frame, microseconds
    Likenesses made;
};

// The scores of a run.
struct Scores {
    std::vector<Score> frames;
    uint64_t notInterpolated = 0;  // number of held-out frames without an interpolated one
};

// A source that sends only every `step`-th frame of a clip and holds the others out. As a sink it
// compares each interpolated frame with the held-out frame of the same time. Owned by the player
// and used on the thread of the only session.
class ReferenceScore final : public FrameSource, public FrameSink {
  public:
    static constexpr uint32_t kMinSide = 16;  // pixels; SSIM needs a few windows

    // Takes ownership of the clip. The first frame that is sent is the clip's first. Throws
    // BadInput if the frames are too small.
    ReferenceScore(std::unique_ptr<FrameSource> clip, uint32_t step);

    std::optional<int64_t> next(uint8_t* rgba, size_t stride) override;
    AudioTracks* audio() override { return mClip->audio(); }

    // Scores an interpolated frame. Throws SessionFailed if its size differs from the clip's.
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
    uint64_t mNext = 0;             // number of the next frame of the clip
    std::deque<Picture> mPictures;  // clip frames from the last source frame that came out onwards
    std::vector<uint8_t> mSpare;    // reused memory for a held-out frame or a blend
    Scores mScores;
};

// Returns a table with a line for each frame, and with the mean and the minimum of each column.
std::string toText(const Scores& scores);
nlohmann::json toJson(const Scores& scores);

}  // namespace qozplay
