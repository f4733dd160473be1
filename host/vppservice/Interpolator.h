// SPDX-License-Identifier: Apache-2.0
// Writes interpolated frames between two sources of one size.
//
// With motion fields, each pixel is predicted from both sources along the motion of the four nodes
// around it, with a precision of a quarter pixel. The four predictions are weighted by the distance
// of their nodes, so that no block edges are visible. Where the four motions differ, predictions
// along which the sources agree get more weight. The static layer is restored on top.
//
// Without motion fields, the two sources are blended by time. They are also blended if the motion
// explains too few blocks, because one picture then dissolves into another. At a scene cut, when
// too many blocks have no match in either direction, the nearer source is repeated, because a mix
// of two unrelated pictures would look worse.
#pragma once

#include "host/vppservice/MotionPlan.h"
#include "host/vppservice/StaticLayer.h"
#include "host/vppservice/SubpixelPlanes.h"

namespace qoz::host::vppservice {

// A source's pixels, and its number in the session. By the number the interpolator recognises a
// source whose planes it has built already.
struct NumberedView {
    Nv12View view;
    uint64_t number;
};

// The renderer owns one. Not for use by two threads at once. Throws std::bad_alloc if memory cannot
// be allocated.
class Interpolator {
  public:
    // Measures the interval between two sources and decides how its frames are written. `fields`
    // are the motion fields of this pair; they are not read after the call.
    void beginInterval(const NumberedView& older, const NumberedView& newer,
                       const MotionFields& fields);
    // Writes one frame of the interval. The sources are those of beginInterval().
    void write(const Nv12View& older, const Nv12View& newer, Phase phase, const Nv12Canvas& to);

  private:
    // How the frames of the interval are written.
    enum class Way { Blend, Follow, Repeat };

    // Builds the planes of both sources, unless they exist, and undoes a change of brightness on
    // the older one. `any` is a vector of the forward field; all of them contain that change.
    void prepare(const NumberedView& older, const NumberedView& newer, const MotionVector& any);

    struct Planes {
        SubpixelPlanes planes;
        uint64_t number = 0;  // number of the source; 0: none
    };

    Way mWay = Way::Blend;
    Planes mOlder;
    Planes mNewer;
    SubpixelPlanes mAsBright;  // the older source with the brightness of the newer; used if mFades
    bool mFades = false;
    MotionPlan mPlan;
    StaticLayer mStatic;
};

// Copies a frame. Both have the same size.
void copyFrame(const Nv12View& from, const Nv12Canvas& to);

}  // namespace qoz::host::vppservice
