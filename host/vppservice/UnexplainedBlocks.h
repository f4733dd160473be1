// SPDX-License-Identifier: Apache-2.0
// How much of the change between two sources their motion fields explain.
#pragma once

#include <cstdint>

#include "host/vppservice/Frames.h"
#include "host/vppservice/SubpixelPlanes.h"

namespace qoz::host::vppservice {

// With fewer blocks than this no statement about the picture is possible.
constexpr uint32_t kFewest = 8;

// Returns `part` of `whole` blocks in percent, or 0 if there are fewer than kFewest.
constexpr uint32_t percentOf(uint32_t part, uint32_t whole) {
    return whole < kFewest ? 0 : part * 100 / whole;
}

// The share, in percent, of the changing blocks that the motion does not explain, one number for
// each field. The motion does not explain a block if the block's difference along its vector is
// more than half of the difference without motion.
struct Unexplained {
    uint32_t forward;
    uint32_t backward;
};
Unexplained unexplainedPercent(const MotionFields& fields, const SubpixelPlanes& older,
                               const SubpixelPlanes& newer);

}  // namespace qoz::host::vppservice
