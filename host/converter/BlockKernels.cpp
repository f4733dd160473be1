// SPDX-License-Identifier: Apache-2.0
#include <host/converter/BlockKernels.h>

#undef HWY_TARGET_INCLUDE
#define HWY_TARGET_INCLUDE "host/converter/BlockKernels.cpp"
#include <hwy/foreach_target.h>  // compiles what follows once for each target
#include <hwy/highway.h>

HWY_BEFORE_NAMESPACE();
namespace qoz::host::HWY_NAMESPACE {
namespace hn = hwy::HWY_NAMESPACE;

template <class V>
V absoluteDifference(V a, V b) {
    return hn::Or(hn::SaturatedSub(a, b), hn::SaturatedSub(b, a));
}

uint32_t Difference16(const uint8_t* a, ptrdiff_t aStride, const uint8_t* b, ptrdiff_t bStride) {
    const hn::FixedTag<uint8_t, 16> d;
    const hn::Repartition<uint64_t, decltype(d)> d64;
    auto even = hn::Zero(d64);
    auto odd = hn::Zero(d64);
    for (int y = 0; y < 16; y += 2, a += 2 * aStride, b += 2 * bStride) {
        even = hn::Add(even, hn::SumsOf8(absoluteDifference(hn::LoadU(d, a), hn::LoadU(d, b))));
        odd = hn::Add(odd, hn::SumsOf8(absoluteDifference(hn::LoadU(d, a + aStride),
                                                          hn::LoadU(d, b + bStride))));
    }
    return static_cast<uint32_t>(hn::GetLane(hn::SumOfLanes(d64, hn::Add(even, odd))));
}

uint32_t Difference8(const uint8_t* a, ptrdiff_t aStride, const uint8_t* b, ptrdiff_t bStride) {
    const hn::FixedTag<uint8_t, 16> d;
    const hn::FixedTag<uint8_t, 8> half;
    const hn::Repartition<uint64_t, decltype(d)> d64;
    const auto rows = [&](const uint8_t* p, ptrdiff_t stride) {
        return hn::Combine(d, hn::LoadU(half, p + stride), hn::LoadU(half, p));
    };
    auto sum = hn::Zero(d64);
    for (int y = 0; y < 8; y += 2, a += 2 * aStride, b += 2 * bStride) {
        sum = hn::Add(sum, hn::SumsOf8(absoluteDifference(rows(a, aStride), rows(b, bStride))));
    }
    return static_cast<uint32_t>(hn::GetLane(hn::SumOfLanes(d64, sum)));
}

void GradientSums16(const uint8_t* a, ptrdiff_t aStride, const uint8_t* b, ptrdiff_t bStride,
                    GradientSums* sums) {
    const hn::CappedTag<int16_t, 16> d;
    const hn::Rebind<uint8_t, decltype(d)> bytes;
    const hn::RepartitionToWide<decltype(d)> wide;
    const auto load = [&](const uint8_t* p) { return hn::PromoteTo(d, hn::LoadU(bytes, p)); };
    const auto zero = hn::Zero(wide);
    auto xx = zero, xy = zero, yy = zero, xr = zero, yr = zero, x = zero, y = zero, r = zero;
    const auto one = hn::Set(d, 1);
    const auto add = [&](auto p, auto q, auto sum) {
        auto upper = zero;  // some targets put half of the products here
        sum = hn::ReorderWidenMulAccumulate(wide, p, q, sum, upper);
        return hn::Add(sum, upper);
    };
    for (int row = 0; row < 16; ++row, a += aStride, b += bStride) {
        for (size_t i = 0; i < 16; i += hn::Lanes(d)) {
            const auto gx = hn::Add(hn::Sub(load(a + i + 1), load(a + i - 1)),
                                    hn::Sub(load(b + i + 1), load(b + i - 1)));
            const auto gy = hn::Add(hn::Sub(load(a + i + aStride), load(a + i - aStride)),
                                    hn::Sub(load(b + i + bStride), load(b + i - bStride)));
            const auto residual = hn::Sub(load(b + i), load(a + i));
            xx = add(gx, gx, xx);
            xy = add(gx, gy, xy);
            yy = add(gy, gy, yy);
            xr = add(gx, residual, xr);
            yr = add(gy, residual, yr);
            x = add(gx, one, x);
            y = add(gy, one, y);
            r = add(residual, one, r);
        }
    }
    const auto total = [&](auto sum) { return hn::GetLane(hn::SumOfLanes(wide, sum)); };
    *sums = {total(xx), total(xy), total(yy), total(xr), total(yr), total(x), total(y), total(r)};
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

HWY_EXPORT(Difference16);
HWY_EXPORT(Difference8);
HWY_EXPORT(GradientSums16);
HWY_EXPORT(ChangeBrightness);

uint32_t difference16(const uint8_t* a, ptrdiff_t aStride, const uint8_t* b, ptrdiff_t bStride) {
    return HWY_DYNAMIC_DISPATCH(Difference16)(a, aStride, b, bStride);
}

uint32_t difference8(const uint8_t* a, ptrdiff_t aStride, const uint8_t* b, ptrdiff_t bStride) {
    return HWY_DYNAMIC_DISPATCH(Difference8)(a, aStride, b, bStride);
}

GradientSums gradientSums16(const uint8_t* a, ptrdiff_t aStride, const uint8_t* b,
                            ptrdiff_t bStride) {
    GradientSums sums;
    HWY_DYNAMIC_DISPATCH(GradientSums16)(a, aStride, b, bStride, &sums);
    return sums;
}

void changeBrightness(const uint8_t* from, uint8_t* to, size_t count, int gain, int offset) {
    HWY_DYNAMIC_DISPATCH(ChangeBrightness)(from, to, count, gain, offset);
}

}  // namespace qoz::host
#endif
