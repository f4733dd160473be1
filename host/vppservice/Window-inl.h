// SPDX-License-Identifier: Apache-2.0
// Reading between pixels, and the comparison of windows. For files that are compiled once for each
// vector extension.

// This file is included once for each extension, so it has no `#pragma once`.
#if defined(QOZ_HOST_VPPSERVICE_WINDOW_INL_H) == defined(HWY_TARGET_TOGGLE)
#ifdef QOZ_HOST_VPPSERVICE_WINDOW_INL_H
#undef QOZ_HOST_VPPSERVICE_WINDOW_INL_H
#else
#define QOZ_HOST_VPPSERVICE_WINDOW_INL_H
#endif

#include <host/converter/Difference-inl.h>
#include <hwy/highway.h>

#include "host/vppservice/SubpixelPlanes.h"

HWY_BEFORE_NAMESPACE();
namespace qoz::host::vppservice::HWY_NAMESPACE {
namespace hn = hwy::HWY_NAMESPACE;
using host::HWY_NAMESPACE::absoluteDifference;
using host::HWY_NAMESPACE::Bytes16;
using host::HWY_NAMESPACE::Sums2;
using host::HWY_NAMESPACE::sumsOfDifferences;
using host::HWY_NAMESPACE::total;

// Loads pixels of a pair: the rounded means of both.
template <class D>
HWY_INLINE hn::VFromD<D> meanOf(D d, PixelPair pair, ptrdiff_t offset) {
    return hn::AverageRound(hn::LoadU(d, pair.first + offset), hn::LoadU(d, pair.second + offset));
}

// The window that is compared: every second row of kWindow x kWindow pixels.
constexpr int kWindow = 16;
constexpr uint32_t kWindowSamples = kWindow * kWindow / 2;

// Returns the sum of absolute differences between a and b over the window;
// load(pair, offset) reads the pixels. If the first half of these rows already reaches `limit`, the
// other half is not added.
template <class Load>
HWY_INLINE uint32_t windowDifferenceBy(const Load& load, PixelPair a, PixelPair b, ptrdiff_t stride,
                                       uint32_t limit) {
    uint32_t all = 0;
    for (ptrdiff_t first = 0; first < 4 && all < limit; first += 2) {
        auto sum = hn::Zero(Sums2());
        for (ptrdiff_t row = first; row < 16; row += 4)
            sum = hn::Add(sum, sumsOfDifferences(load(a, row * stride), load(b, row * stride)));
        all += total(sum);
    }
    return all;
}

// The same, with a faster way of reading for places at whole pixels.
HWY_INLINE uint32_t windowDifference(PixelPair a, PixelPair b, ptrdiff_t stride,
                                     uint32_t limit = UINT32_MAX) {
    const Bytes16 d;
    if (a.first == a.second && b.first == b.second) {
        const auto one = [d](PixelPair pair, ptrdiff_t offset)
                             HWY_ATTR { return hn::LoadU(d, pair.first + offset); };
        return windowDifferenceBy(one, a, b, stride, limit);
    }
    const auto mean = [d](PixelPair pair, ptrdiff_t offset)
                          HWY_ATTR { return meanOf(d, pair, offset); };
    return windowDifferenceBy(mean, a, b, stride, limit);
}

// Returns the difference over every second row after the mean brightness of both windows is made
// equal, so that a light that goes on in the picture makes no difference.
inline uint32_t windowDifferenceOfShapes(PixelPair a, PixelPair b, ptrdiff_t stride) {
    const Bytes16 d;
    auto ofA = hn::Zero(Sums2());
    auto ofB = hn::Zero(Sums2());
    for (ptrdiff_t row = 0; row < 16; row += 2) {
        ofA = hn::Add(ofA, hn::SumsOf8(meanOf(d, a, row * stride)));
        ofB = hn::Add(ofB, hn::SumsOf8(meanOf(d, b, row * stride)));
    }
    const int brighter = (static_cast<int>(total(ofA)) - static_cast<int>(total(ofB))) / 128;
    const auto lift = hn::Set(d, static_cast<uint8_t>(brighter < 0 ? -brighter : brighter));
    auto sum = hn::Zero(Sums2());
    for (ptrdiff_t row = 0; row < 16; row += 2) {
        auto p = meanOf(d, a, row * stride);
        auto q = meanOf(d, b, row * stride);
        (brighter < 0 ? p : q) = hn::SaturatedAdd(brighter < 0 ? p : q, lift);
        sum = hn::Add(sum, sumsOfDifferences(p, q));
    }
    return total(sum);
}

}  // namespace qoz::host::vppservice::HWY_NAMESPACE
HWY_AFTER_NAMESPACE();

#endif  // once for each extension
