// SPDX-License-Identifier: Apache-2.0
#include <host/converter/BlockGrid.h>
#include <host/converter/BlockKernels.h>

#undef HWY_TARGET_INCLUDE
#define HWY_TARGET_INCLUDE "host/converter/BlockKernels.cpp"
#include <hwy/foreach_target.h>  // compiles the rest of this file for each target
// These follow it because they are compiled for each target too.
#include <host/converter/BlockKernels-inl.h>
#include <host/converter/ChangeBrightness-inl.h>
#include <hwy/highway.h>

HWY_BEFORE_NAMESPACE();
namespace qoz::host::HWY_NAMESPACE {

// Returns the mean of |d/dx| + |d/dy| over the block, 255 at most. A block is compared with itself,
// displaced by one pixel to the right and by one downwards.
HWY_INLINE uint8_t textureOf(const LumaPlane& plane, const Block& block) {
    uint32_t sum = 0;
    for (const Displacement step : {Displacement{1, 0}, Displacement{0, 1}}) {
        const uint32_t difference = blockDifference(plane, plane, block, step);
        if (difference != kUnseen) sum += difference;
    }
    return static_cast<uint8_t>(std::min(255U, sum / block.area()));
}

// Measures the textures of all blocks.
void MeasureTextures(const LumaPlane& plane, const BlockLayout& blocks, uint8_t* textures) {
    for (int row = 0; row < blocks.rows(); ++row) {
        for (int column = 0; column < blocks.columns(); ++column)
            *textures++ = textureOf(plane, blocks.block(column, row));
    }
}

}  // namespace qoz::host::HWY_NAMESPACE
HWY_AFTER_NAMESPACE();

#if HWY_ONCE
namespace qoz::host {

HWY_EXPORT(MeasureTextures);
HWY_EXPORT(ChangeBrightness);

void measureTextures(const LumaPlane& plane, const BlockLayout& blocks, uint8_t* textures) {
    HWY_DYNAMIC_DISPATCH(MeasureTextures)(plane, blocks, textures);
}

void changeBrightness(const uint8_t* from, uint8_t* to, size_t count, int gain, int offset) {
    HWY_DYNAMIC_DISPATCH(ChangeBrightness)(from, to, count, gain, offset);
}

}  // namespace qoz::host
#endif
