// SPDX-License-Identifier: Apache-2.0
#include "host/vppservice/PixelKernels.h"

#undef HWY_TARGET_INCLUDE
#define HWY_TARGET_INCLUDE "host/vppservice/PixelKernels.cpp"
#include <hwy/foreach_target.h>  // compiles the rest of this file for each target
// These follow it because they are compiled for each target too.
#include <host/converter/ChangeBrightness-inl.h>
#include <hwy/highway.h>

HWY_BEFORE_NAMESPACE();
namespace qoz::host::vppservice::HWY_NAMESPACE {
namespace {
namespace hn = hwy::HWY_NAMESPACE;

// Computes the pixels half way between from[i] and from[i + step], from six pixels that are `step`
// apart: (20 inner - 5 middle + outer + 16) / 32, where each term is the sum of a symmetric pair.
HWY_INLINE void halfPixels(const uint8_t* from, ptrdiff_t step, uint8_t* to, int count) {
    const hn::ScalableTag<int16_t> d;
    const hn::Rebind<uint8_t, decltype(d)> bytes;
    const auto load = [d, bytes](const uint8_t* p)
                          HWY_ATTR { return hn::PromoteTo(d, hn::LoadU(bytes, p)); };
    const auto half = hn::Set(d, 16);
    for (int i = 0; i < count; i += static_cast<int>(hn::Lanes(d))) {
        const uint8_t* p = from + i;
        const auto inner = hn::Add(load(p), load(p + step));
        const auto middle = hn::Add(load(p - step), load(p + 2 * step));
        const auto outer = hn::Add(load(p - 2 * step), load(p + 3 * step));
        const auto once = hn::Sub(hn::ShiftLeft<2>(inner), middle);
        const auto sum = hn::Add(hn::Add(hn::ShiftLeft<2>(once), once), hn::Add(outer, half));
        hn::StoreU(hn::DemoteTo(bytes, hn::ShiftRight<5>(sum)), bytes, to + i);
    }
}

// The fourth plane is the second one filtered downwards, so the second must be some rows ahead.
void MakeHalfPixels(const HalfPlanes& planes) {
    const auto row = [&](int plane, int y) {
        return planes.picture + plane * planes.next + y * planes.stride;
    };
    int ready = 1 - kFilterReach;
    for (int y = 0; y < planes.height; ++y) {
        for (; ready <= y + kFilterReach; ++ready)
            halfPixels(row(0, ready), 1, row(1, ready), planes.width);
        halfPixels(row(0, y), planes.stride, row(2, y), planes.width);
        halfPixels(row(1, y), planes.stride, row(3, y), planes.width);
    }
}

void ChangeBrightness(const uint8_t* from, uint8_t* to, size_t count, int gain, int offset) {
    host::HWY_NAMESPACE::ChangeBrightness(from, to, count, gain, offset);
}

}  // namespace
}  // namespace qoz::host::vppservice::HWY_NAMESPACE
HWY_AFTER_NAMESPACE();

#if HWY_ONCE
namespace qoz::host::vppservice {
namespace {

HWY_EXPORT(MakeHalfPixels);
HWY_EXPORT(ChangeBrightness);

}  // namespace

void makeHalfPixels(const HalfPlanes& planes) {
    HWY_DYNAMIC_DISPATCH(MakeHalfPixels)(planes);
}

void changeBrightness(const uint8_t* from, uint8_t* to, size_t count, int gain, int offset) {
    HWY_DYNAMIC_DISPATCH(ChangeBrightness)(from, to, count, gain, offset);
}

}  // namespace qoz::host::vppservice
#endif
