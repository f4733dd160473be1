// SPDX-License-Identifier: Apache-2.0
// Smoothing of a motion field: makes the vectors of neighbouring blocks agree.
#pragma once

#include <host/converter/BlockGrid.h>
#include <host/converter/LumaPyramid.h>

namespace qoz::host {

// Gives a block a neighbour's vector if that removes more disagreement with the other neighbours
// than it adds to the block's difference. A block that has left the picture follows its neighbours.
void smoothField(const LumaPlane& from, const LumaPlane& to, BlockGrid* grid);

}  // namespace qoz::host
