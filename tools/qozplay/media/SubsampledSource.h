// SPDX-License-Identifier: Apache-2.0
// A clip of which only every N-th frame is given away; the truth keeps all of them.
#pragma once

#include <vector>

#include "qozplay/media/FrameSource.h"
#include "qozplay/report/ReferenceScore.h"

namespace qozplay {

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

}  // namespace qozplay
