// SPDX-License-Identifier: Apache-2.0
// Agreement between neighbours in a field of vectors.
#pragma once

#include <host/converter/BlockGrid.h>
#include <host/converter/LumaPyramid.h>

namespace qoz::host {

// Gives a block the vector of a neighbour where that costs little in likeness and much in
// disagreement is saved, and where the block has left the picture.
void smoothField(const LumaPlane& from, const LumaPlane& to, BlockGrid* grid);

}  // namespace qoz::host
