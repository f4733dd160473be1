// SPDX-License-Identifier: Apache-2.0
#include <host/converter/BlockKernels.h>
#include <host/converter/BlockGrid.h>

#undef HWY_TARGET_INCLUDE
#define HWY_TARGET_INCLUDE "host/converter/BlockKernels.cpp"
#include <hwy/foreach_target.h>  // compiles what follows once for each target
// After it, as it is compiled once for each target too.
#include <host/converter/BlockKernels-inl.h>
#include <hwy/highway.h>

HWY_BEFORE_NAMESPACE();
namespace qoz::host::HWY_NAMESPACE {

// Mean over the block of |d/dx| + |d/dy|, 255 at most.
HWY_INLINE uint8_t textureOf(const LumaPlane& plane, const Block& block) {
    uint32_t sum = 0;
    for (const Displacement step : {Displacement{1, 0}, Displacement{0, 1}}) {
        const uint32_t difference = blockDifference(plane, plane, block, step);
        if (difference != kUnseen) sum += difference;
    }
    return static_cast<uint8_t>(std::min(255U, sum / block.area()));
}

void MeasureTextures(const LumaPlane& plane, const BlockGrid& grid, uint8_t* textures) {
    for (int row = 0; row < grid.rows(); ++row) {
        for (int column = 0; column < grid.columns(); ++column)
            *textures++ = textureOf(plane, grid.block(column, row));
    }
}

void ChangeBrightness(const uint8_t* from, uint8_t* to, size_t count, int gain, int offset) {
    const hn::ScalableTag<int16_t> d;
    const hn::Rebind<uint8_t, decltype(d)> bytes;
    // Of products of 15 bits the upper half: luma * 128 * gain * 2 / 65536.
    const auto factor = hn::Set(d, static_cast<int16_t>(gain * 2));
    const auto addend = hn::Set(d, static_cast<int16_t>(offset));
    const auto change = [&](auto in) {
        const auto luma = hn::PromoteTo(d, in);
        const auto scaled = hn::MulHigh(hn::ShiftLeft<7>(luma), factor);
        return hn::DemoteTo(bytes, hn::Add(hn::Add(luma, scaled), addend));
    };
    const size_t lanes = hn::Lanes(d);
    size_t i = 0;
    for (; i + lanes <= count; i += lanes)
        hn::StoreU(change(hn::LoadU(bytes, from + i)), bytes, to + i);
    for (; i < count; ++i) {
        const int value = from[i] + ((from[i] * 128 * gain * 2) >> 16) + offset;
        to[i] = static_cast<uint8_t>(value < 0 ? 0 : value > 255 ? 255 : value);
    }
}

}  // namespace qoz::host::HWY_NAMESPACE
HWY_AFTER_NAMESPACE();

#if HWY_ONCE
namespace qoz::host {

HWY_EXPORT(MeasureTextures);
HWY_EXPORT(ChangeBrightness);

void measureTextures(const LumaPlane& plane, const BlockGrid& grid, uint8_t* textures) {
    HWY_DYNAMIC_DISPATCH(MeasureTextures)(plane, grid, textures);
}

void changeBrightness(const uint8_t* from, uint8_t* to, size_t count, int gain, int offset) {
    HWY_DYNAMIC_DISPATCH(ChangeBrightness)(from, to, count, gain, offset);
}

}  // namespace qoz::host
#endif
