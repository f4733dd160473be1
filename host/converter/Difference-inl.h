// SPDX-License-Identifier: Apache-2.0
// Absolute differences of bytes, for files that are compiled once for each vector extension.

// This file is included once for each extension, so it has no `#pragma once`.
#if defined(QOZ_HOST_CONVERTER_DIFFERENCE_INL_H) == defined(HWY_TARGET_TOGGLE)
#ifdef QOZ_HOST_CONVERTER_DIFFERENCE_INL_H
#undef QOZ_HOST_CONVERTER_DIFFERENCE_INL_H
#else
#define QOZ_HOST_CONVERTER_DIFFERENCE_INL_H
#endif

#include <hwy/highway.h>

HWY_BEFORE_NAMESPACE();
namespace qoz::host::HWY_NAMESPACE {
namespace hn = hwy::HWY_NAMESPACE;

using Bytes16 = hn::FixedTag<uint8_t, 16>;
using Sums2 = hn::Repartition<uint64_t, Bytes16>;

template <class V>
HWY_INLINE V absoluteDifference(V a, V b) {
    return hn::Or(hn::SaturatedSub(a, b), hn::SaturatedSub(b, a));
}

// Returns two sums of absolute differences, one for each half of the sixteen bytes.
HWY_INLINE hn::VFromD<Sums2> sumsOfDifferences(hn::VFromD<Bytes16> a, hn::VFromD<Bytes16> b) {
#if HWY_ARCH_X86 && HWY_TARGET != HWY_EMU128
    // This is one instruction, for which Highway has no function.
    return hn::VFromD<Sums2>{_mm_sad_epu8(a.raw, b.raw)};
#else
    return hn::SumsOf8(absoluteDifference(a, b));
#endif
}

HWY_INLINE uint32_t total(hn::VFromD<Sums2> sums) {
    return static_cast<uint32_t>(hn::GetLane(hn::SumOfLanes(Sums2(), sums)));
}

}  // namespace qoz::host::HWY_NAMESPACE
HWY_AFTER_NAMESPACE();

#endif  // once for each extension
