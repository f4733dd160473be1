// SPDX-License-Identifier: Apache-2.0
// The pixels of a frame in between, along a plan.
//
// A tile of 8 x 8 pixels lies between four nodes. Where these move alike, it is read from both
// sources along that motion, together with the tiles beside it that move so too. Elsewhere each
// pixel is mixed of what the four predict for it: by distance, so that no block shows its edge, and
// where they move apart the more by how well the two sources agree along each.
#pragma once

#include "host/vppservice/MotionPlan.h"
#include "host/vppservice/SubpixelPlanes.h"

namespace qoz::host::vppservice {

// `asBright` is the older source, as bright as the newer, by which the two are compared: the same
// object where there is no fade. The nodes around the tiles are chosen.
void writeLuma(const MotionPlan& plan, const SubpixelPlanes& older, const SubpixelPlanes& asBright,
               const SubpixelPlanes& newer, TileRows tiles, const Nv12Canvas& to);
void writeChroma(const MotionPlan& plan, const SubpixelPlanes& older, const SubpixelPlanes& newer,
                 TileRows tiles, const Nv12Canvas& to);

}  // namespace qoz::host::vppservice
