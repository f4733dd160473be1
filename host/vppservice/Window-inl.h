// SPDX-License-Identifier: Apache-2.0
// Pixels between pixels, and windows of them compared; for files that are compiled once for each
// vector extension.

// Included again for each extension, hence no `#pragma once`.
#if defined(QOZ_HOST_VPPSERVICE_WINDOW_INL_H) == defined(HWY_TARGET_TOGGLE)
#ifdef QOZ_HOST_VPPSERVICE_WINDOW_INL_H
#undef QOZ_HOST_VPPSERVICE_WINDOW_INL_H
#else
#define QOZ_HOST_VPPSERVICE_WINDOW_INL_H
#endif

#include <hwy/highway.h>

#include "host/vppservice/SubpixelPlanes.h"

HWY_BEFORE_NAMESPACE();
namespace qoz::host::vppservice::HWY_NAMESPACE {
namespace hn = hwy::HWY_NAMESPACE;

template <class D>
HWY_INLINE hn::VFromD<D> meanOf(D d, PixelPair pair, ptrdiff_t offset) {
    return hn::AverageRound(hn::LoadU(d, pair.first + offset), hn::LoadU(d, pair.second + offset));
}

template <class V>
HWY_INLINE V apart(V a, V b) {
    return hn::Or(hn::SaturatedSub(a, b), hn::SaturatedSub(b, a));
}

// Sum of absolute differences between a and b over every fourth row of 16x16 pixels, from row
// `first` on.
HWY_INLINE uint32_t everyFourthRow(PixelPair a, PixelPair b, ptrdiff_t stride, ptrdiff_t first) {
    const hn::FixedTag<uint8_t, 16> d;
    const hn::Repartition<uint64_t, decltype(d)> d64;
    auto sum = hn::Zero(d64);
    for (ptrdiff_t row = first; row < 16; row += 4) {
        const auto p = meanOf(d, a, row * stride);
        const auto q = meanOf(d, b, row * stride);
        sum = hn::Add(sum, hn::SumsOf8(apart(p, q)));
    }
    return static_cast<uint32_t>(hn::GetLane(hn::SumOfLanes(d64, sum)));
}

// The same over every second row; over every fourth alone where that comes to the limit.
HWY_INLINE uint32_t windowDifference(PixelPair a, PixelPair b, ptrdiff_t stride,
                                     uint32_t limit = UINT32_MAX) {
    const uint32_t half = everyFourthRow(a, b, stride, 0);
    return half >= limit ? half : half + everyFourthRow(a, b, stride, 2);
}

// Over every second row, less the difference of the windows' means: a light that goes on is no
// difference.
inline uint32_t windowDifferenceOfShapes(PixelPair a, PixelPair b, ptrdiff_t stride) {
    const hn::FixedTag<uint8_t, 16> d;
    const hn::Repartition<uint64_t, decltype(d)> d64;
    auto ofA = hn::Zero(d64);
    auto ofB = hn::Zero(d64);
    for (ptrdiff_t row = 0; row < 16; row += 2) {
        ofA = hn::Add(ofA, hn::SumsOf8(meanOf(d, a, row * stride)));
        ofB = hn::Add(ofB, hn::SumsOf8(meanOf(d, b, row * stride)));
    }
    const auto total = [d64](auto sums) HWY_ATTR {
        return static_cast<int>(hn::GetLane(hn::SumOfLanes(d64, sums)));
    };
    const int brighter = (total(ofA) - total(ofB)) / 128;
    const auto lift = hn::Set(d, static_cast<uint8_t>(brighter < 0 ? -brighter : brighter));
    auto sum = hn::Zero(d64);
    for (ptrdiff_t row = 0; row < 16; row += 2) {
        auto p = meanOf(d, a, row * stride);
        auto q = meanOf(d, b, row * stride);
        (brighter < 0 ? p : q) = hn::SaturatedAdd(brighter < 0 ? p : q, lift);
        sum = hn::Add(sum, hn::SumsOf8(apart(p, q)));
    }
    return static_cast<uint32_t>(total(sum));
}

}  // namespace qoz::host::vppservice::HWY_NAMESPACE
HWY_AFTER_NAMESPACE();

#endif  // once for each extension
