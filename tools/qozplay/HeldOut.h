// A clip of which only every N-th frame is given away; the truth keeps all of them.
#pragma once

#include "FrameSource.h"
#include "Truth.h"

#include <vector>

namespace qozplay {

class HeldOut final : public FrameSource {
  public:
    HeldOut(std::unique_ptr<FrameSource> clip, uint32_t step, Truth& truth);

    Size size() const override { return mClip->size(); }
    Rate rate() const override;
    std::optional<uint64_t> length() const override;
    bool next(uint8_t* rgba, size_t stride) override;

  private:
    const std::unique_ptr<FrameSource> mClip;
    const uint32_t mStep;
    Truth& mTruth;
    std::vector<uint8_t> mHeld;  // the frames between two that are given away, rows without padding
    uint64_t mNext = 0;          // frame of the clip
};

}  // namespace qozplay
