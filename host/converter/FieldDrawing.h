// SPDX-License-Identifier: Apache-2.0
// A vector field as a picture.
#pragma once

#include <host/converter/MotionField.h>

#include <cstdint>
#include <vector>

namespace qoz::host {

// Bytes R, G, B in rows without padding, kMotionBlock pixels for each vector, both ways.
std::vector<uint8_t> drawField(const MotionVector* field, uint32_t columns, uint32_t rows);

}  // namespace qoz::host
