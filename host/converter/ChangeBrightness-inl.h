// SPDX-License-Identifier: Apache-2.0
// The loop of changeBrightness(), for files that are compiled once for each vector extension.

// This file is included once for each extension, so it has no `#pragma once`.
#if defined(QOZ_HOST_CONVERTER_CHANGE_BRIGHTNESS_INL_H) == defined(HWY_TARGET_TOGGLE)
#ifdef QOZ_HOST_CONVERTER_CHANGE_BRIGHTNESS_INL_H
#undef QOZ_HOST_CONVERTER_CHANGE_BRIGHTNESS_INL_H
#else
#define QOZ_HOST_CONVERTER_CHANGE_BRIGHTNESS_INL_H
#endif

#include <hwy/highway.h>

HWY_BEFORE_NAMESPACE();
namespace qoz::host::HWY_NAMESPACE {
namespace hn = hwy::HWY_NAMESPACE;

// Computes to = from + from * gain / 256 + offset and saturates the result.
inline void ChangeBrightness(const uint8_t* from, uint8_t* to, size_t count, int gain, int offset) {
    const hn::ScalableTag<int16_t> d;
    const hn::Rebind<uint8_t, decltype(d)> bytes;
    // MulHigh() keeps the upper 16 bits of a product, luma * 128 * gain * 2 / 65536 = luma * gain /
    // 256.
    const auto factor = hn::Set(d, static_cast<int16_t>(gain * 2));
    const auto addend = hn::Set(d, static_cast<int16_t>(offset));
    const size_t lanes = hn::Lanes(d);
    size_t i = 0;
    for (; i + lanes <= count; i += lanes) {
        const auto luma = hn::PromoteTo(d, hn::LoadU(bytes, from + i));
        const auto scaled = hn::MulHigh(hn::ShiftLeft<7>(luma), factor);
        hn::StoreU(hn::DemoteTo(bytes, hn::Add(hn::Add(luma, scaled), addend)), bytes, to + i);
    }
    for (; i < count; ++i) {
        const int value = from[i] + ((from[i] * 128 * gain * 2) >> 16) + offset;
        to[i] = static_cast<uint8_t>(value < 0 ? 0 : value > 255 ? 255 : value);
    }
}

}  // namespace qoz::host::HWY_NAMESPACE
HWY_AFTER_NAMESPACE();

#endif  // once for each extension
