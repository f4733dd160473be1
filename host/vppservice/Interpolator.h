// Writes a frame in between two sources of one size.
//
// With motion: each pixel is predicted from both sources along the motion of the four nodes around
// it, and the four predictions are mixed by distance, so that no block shows its edge. Whole pixels
// of luma and of chroma. Without: both sources blended by time. At a scene cut, which the vectors
// give away by matching nothing, the nearer source is repeated rather than two pictures mixed.
#pragma once

#include "host/vppservice/MotionPlan.h"

namespace qoz::host::vppservice {

class Interpolator {
  public:
    // `fields` belong to the pair and need to live until the interval is done.
    void beginInterval(const MotionFields& fields, FrameSize size);
    void write(const Nv12View& older, const Nv12View& newer, Phase phase, const Nv12Canvas& to);

  private:
    enum class Way { Blend, Follow, Repeat };

    Way mWay = Way::Blend;
    MotionFields mFields;
    MotionPlan mPlan;
};

// The same size on both sides.
void copyFrame(const Nv12View& from, const Nv12Canvas& to);

}  // namespace qoz::host::vppservice
