// SPDX-License-Identifier: Apache-2.0
// Draws a motion field as a picture, for the frame dumps.
#pragma once

#include <host/converter/MotionField.h>

#include <cstdint>
#include <vector>

namespace qoz::host {

// Returns the picture as bytes R, G, B, in rows without padding. Each vector gets a cell of
// kMotionBlock pixels on each side.
std::vector<uint8_t> drawField(const MotionVector* field, uint32_t columns, uint32_t rows);

}  // namespace qoz::host
