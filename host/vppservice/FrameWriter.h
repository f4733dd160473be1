// SPDX-License-Identifier: Apache-2.0
// Writes the pixels of an interpolated frame along a motion plan.
//
// A tile of 8 x 8 pixels lies between four nodes. If all four move alike, the tile is read from
// both sources along their motion, together with the adjoining tiles of the row that move likewise.
// In other tiles each pixel is a mix of the four nodes' predictions, weighted by the distance to
// the nodes, so that no block edges are visible. If the motions differ by more than a pixel, luma
// predictions along which the sources agree get more weight.
#pragma once

#include "host/vppservice/MotionPlan.h"
#include "host/vppservice/SubpixelPlanes.h"

namespace qoz::host::vppservice {

// Write the luma and the chroma of rows of tiles. The nodes around the tiles must be chosen.
// `asBright` is the older source with the brightness of the newer one, by which the two are
// compared; it is `older` itself if there is no change of brightness.
void writeLuma(const MotionPlan& plan, const SubpixelPlanes& older, const SubpixelPlanes& asBright,
               const SubpixelPlanes& newer, TileRows tiles, const Nv12Canvas& to);
void writeChroma(const MotionPlan& plan, const SubpixelPlanes& older, const SubpixelPlanes& newer,
                 TileRows tiles, const Nv12Canvas& to);

}  // namespace qoz::host::vppservice
