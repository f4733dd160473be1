// SPDX-License-Identifier: Apache-2.0
// Writes a frame in between two sources of one size.
//
// With motion: each pixel is predicted from both sources along the motion of the four nodes around
// it, to a quarter of a pixel, and the four predictions are mixed: by distance, so that no block
// shows its edge, and where the four move apart the more by how well the two sources agree. What
// stands still over it is laid on top.
// Without: both sources blended by time. At a scene cut, which the vectors give away by matching
// nothing either way, the nearer source is repeated rather than two pictures mixed.
#pragma once

#include "host/vppservice/MotionPlan.h"
#include "host/vppservice/StaticLayer.h"
#include "host/vppservice/SubpixelPlanes.h"

namespace qoz::host::vppservice {

// A source's pixels, and a number that no other source of the session has.
struct NumberedView {
    Nv12View view;
    uint64_t number;
};

class Interpolator {
  public:
    // `fields` belong to the pair; they are read at once.
    void beginInterval(const NumberedView& older, const NumberedView& newer,
                       const MotionFields& fields);
    void write(const Nv12View& older, const Nv12View& newer, Phase phase, const Nv12Canvas& to);

  private:
    enum class Way { Blend, Follow, Repeat };

    // `any` vector tells the pair's change of brightness.
    void prepare(const NumberedView& older, const NumberedView& newer, const MotionVector& any);

    struct Planes {
        SubpixelPlanes planes;
        uint64_t number = 0;  // 0: of no source
    };

    Way mWay = Way::Blend;
    Planes mOlder;
    Planes mNewer;
    SubpixelPlanes mAsBright;  // the older source, as bright as the newer, in a fade
    bool mFades = false;
    MotionPlan mPlan;
    StaticLayer mStatic;
};

// The same size on both sides.
void copyFrame(const Nv12View& from, const Nv12Canvas& to);

}  // namespace qoz::host::vppservice
