// SPDX-License-Identifier: Apache-2.0
#include "host/vppservice/PixelKernels.h"

#undef HWY_TARGET_INCLUDE
#define HWY_TARGET_INCLUDE "host/vppservice/PixelKernels.cpp"
#include <hwy/foreach_target.h>  // compiles what follows once for each target
#include <hwy/highway.h>

HWY_BEFORE_NAMESPACE();
namespace qoz::host::vppservice::HWY_NAMESPACE {
namespace hn = hwy::HWY_NAMESPACE;

void HalfPixels(const uint8_t* from, ptrdiff_t step, uint8_t* to, size_t count) {
    const hn::ScalableTag<int16_t> d;
    const hn::Rebind<uint8_t, decltype(d)> bytes;
    const auto load = [&](const uint8_t* p) { return hn::PromoteTo(d, hn::LoadU(bytes, p)); };
    const auto five = hn::Set(d, 5);
    const auto twenty = hn::Set(d, 20);
    const auto half = hn::Set(d, 16);
    // The last vector may write past the end: rows have a rim.
    for (size_t i = 0; i < count; i += hn::Lanes(d)) {
        const uint8_t* p = from + i;
        const auto inner = hn::Add(load(p), load(p + step));
        const auto middle = hn::Add(load(p - step), load(p + 2 * step));
        const auto outer = hn::Add(load(p - 2 * step), load(p + 3 * step));
        const auto sum =
            hn::Add(hn::Sub(hn::Mul(inner, twenty), hn::Mul(middle, five)), hn::Add(outer, half));
        hn::StoreU(hn::DemoteTo(bytes, hn::ShiftRight<5>(sum)), bytes, to + i);
    }
}

template <class D>
hn::VFromD<D> MeanOf(D d, PixelPair pair, ptrdiff_t offset) {
    return hn::AverageRound(hn::LoadU(d, pair.first + offset), hn::LoadU(d, pair.second + offset));
}

uint32_t WindowDifference(PixelPair a, PixelPair b, ptrdiff_t stride) {
    const hn::FixedTag<uint8_t, 16> d;
    const hn::Repartition<uint64_t, decltype(d)> d64;
    auto sum = hn::Zero(d64);
    for (ptrdiff_t row = 0; row < 16; row += 2) {
        const auto p = MeanOf(d, a, row * stride);
        const auto q = MeanOf(d, b, row * stride);
        sum = hn::Add(sum, hn::SumsOf8(hn::Or(hn::SaturatedSub(p, q), hn::SaturatedSub(q, p))));
    }
    return static_cast<uint32_t>(hn::GetLane(hn::SumOfLanes(d64, sum)));
}

uint32_t WindowDifferenceOfShapes(PixelPair a, PixelPair b, ptrdiff_t stride) {
    const hn::FixedTag<uint8_t, 16> d;
    const hn::Repartition<uint64_t, decltype(d)> d64;
    const auto total = [&](auto sums) {
        return static_cast<int>(hn::GetLane(hn::SumOfLanes(d64, sums)));
    };
    auto ofA = hn::Zero(d64);
    auto ofB = hn::Zero(d64);
    for (ptrdiff_t row = 0; row < 16; row += 2) {
        ofA = hn::Add(ofA, hn::SumsOf8(MeanOf(d, a, row * stride)));
        ofB = hn::Add(ofB, hn::SumsOf8(MeanOf(d, b, row * stride)));
    }
    const int brighter = (total(ofA) - total(ofB)) / 128;
    const auto lift = hn::Set(d, static_cast<uint8_t>(brighter < 0 ? -brighter : brighter));
    auto sum = hn::Zero(d64);
    for (ptrdiff_t row = 0; row < 16; row += 2) {
        auto p = MeanOf(d, a, row * stride);
        auto q = MeanOf(d, b, row * stride);
        (brighter < 0 ? p : q) = hn::SaturatedAdd(brighter < 0 ? p : q, lift);
        sum = hn::Add(sum, hn::SumsOf8(hn::Or(hn::SaturatedSub(p, q), hn::SaturatedSub(q, p))));
    }
    return static_cast<uint32_t>(total(sum));
}

// Words below 256 as bytes.
template <class D, class V>
hn::VFromD<D> Narrow(D bytes, V words) {
    return hn::DemoteTo(bytes, hn::BitCast(hn::RebindToSigned<hn::DFromV<V>>(), words));
}

// Both sources by their shares.
template <class D>
hn::VFromD<D> Mixed(D d, const TileSource& source, ptrdiff_t offset) {
    const auto older = MeanOf(d, source.older, offset);
    const auto newer = MeanOf(d, source.newer, offset);
    if (source.newerShare * 2 == kWholeShare) return hn::AverageRound(older, newer);
    if (source.newerShare == 0) return older;
    if (source.newerShare == kWholeShare) return newer;
    const hn::Rebind<uint16_t, hn::Half<D>> wide;
    const auto share = hn::Set(wide, static_cast<uint16_t>(source.newerShare));
    const auto rest = hn::Set(wide, static_cast<uint16_t>(kWholeShare - source.newerShare));
    const auto mix = [&](auto a, auto b) {
        const auto sum =
            hn::Add(hn::Mul(hn::PromoteTo(wide, a), rest), hn::Mul(hn::PromoteTo(wide, b), share));
        return hn::ShiftRight<6>(hn::Add(sum, hn::Set(wide, kWholeShare / 2)));
    };
    const hn::Half<D> half;
    const auto low = mix(hn::LowerHalf(half, older), hn::LowerHalf(half, newer));
    const auto high = mix(hn::UpperHalf(half, older), hn::UpperHalf(half, newer));
    return hn::Combine(d, Narrow(half, high), Narrow(half, low));
}

template <class D>
size_t WriteSpanBy(D d, const TileSource& source, ptrdiff_t from, uint8_t* to, size_t at,
                   size_t count) {
    for (; at + hn::Lanes(d) <= count; at += hn::Lanes(d)) {
        hn::StoreU(Mixed(d, source, from + static_cast<ptrdiff_t>(at)), d, to + at);
    }
    return at;
}

void WriteSpan(const TileSource& source, ptrdiff_t stride, uint8_t* to, ptrdiff_t toStride,
               size_t count, int rows) {
    for (int row = 0; row < rows; ++row, to += toStride) {
        const ptrdiff_t from = row * stride;
        const size_t done = WriteSpanBy(hn::ScalableTag<uint8_t>(), source, from, to, 0, count);
        WriteSpanBy(hn::FixedTag<uint8_t, 8>(), source, from, to, done, count);
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

// Shares of the right-hand nodes, of 16, at the centres of the pixels between two.
HWY_ALIGN constexpr uint16_t kRight[8] = {1, 3, 5, 7, 9, 11, 13, 15};
HWY_ALIGN constexpr uint16_t kChromaRight[8] = {2, 2, 6, 6, 10, 10, 14, 14};

template <class Predict>
void MixBy(const Predict& predict, const uint16_t* shares, int tall, uint8_t* to,
           ptrdiff_t toStride, int rows) {
    const hn::FixedTag<uint16_t, 8> d;
    const hn::Rebind<uint8_t, decltype(d)> bytes;
    const auto right = hn::Load(d, shares);
    const auto left = hn::Sub(hn::Set(d, 16), right);
    for (int row = 0; row < rows; ++row, to += toStride) {
        const auto top = hn::Add(hn::Mul(predict(0, row), left), hn::Mul(predict(1, row), right));
        const auto bottom =
            hn::Add(hn::Mul(predict(2, row), left), hn::Mul(predict(3, row), right));
        const auto below = static_cast<uint16_t>((2 * row + 1) * 8 / tall);
        const auto sum = hn::Add(hn::Mul(top, hn::Set(d, static_cast<uint16_t>(16 - below))),
                                 hn::Add(hn::Mul(bottom, hn::Set(d, below)), hn::Set(d, 128)));
        hn::StoreU(Narrow(bytes, hn::ShiftRight<8>(sum)), bytes, to);
    }
}

void MixTile(const TileSource (&sources)[4], ptrdiff_t stride, uint8_t* to, ptrdiff_t toStride,
             int rows) {
    const hn::FixedTag<uint16_t, 8> d;
    const hn::Rebind<uint8_t, decltype(d)> bytes;
    MixBy([&](int k, int row) { return hn::PromoteTo(d, Mixed(bytes, sources[k], row * stride)); },
          kRight, 8, to, toStride, rows);
}

// Squared grey levels that two sources may differ by through noise and fractions of a pixel.
constexpr float kAgreement = 12;
constexpr float kOneSided = 100;  // what is taken for the disagreement where there is but one

void WeighTile(const TileSource (&sources)[4], ptrdiff_t stride, uint8_t* to, ptrdiff_t toStride,
               int rows) {
    const hn::CappedTag<float, 8> d;
    const hn::Rebind<int32_t, decltype(d)> ints;
    const hn::Rebind<uint8_t, decltype(d)> bytes;
    const auto promote = [&](auto v) { return hn::ConvertTo(d, hn::PromoteTo(ints, v)); };
    HWY_ALIGN float rightShares[8];
    for (int i = 0; i < 8; ++i)
        rightShares[i] = kRight[i];
    for (int row = 0; row < rows; ++row, to += toStride) {
        const auto below = static_cast<float>(2 * row + 1);
        for (size_t i = 0; i < 8; i += hn::Lanes(d)) {
            const auto right = hn::Load(d, rightShares + i);
            const auto left = hn::Sub(hn::Set(d, 16), right);
            auto sum = hn::Zero(d);
            auto weights = hn::Zero(d);
            for (int k = 0; k < 4; ++k) {
                const TileSource& source = sources[k];
                const ptrdiff_t at = row * stride + static_cast<ptrdiff_t>(i);
                const auto older = promote(MeanOf(bytes, source.older, at));
                const auto newer = promote(MeanOf(bytes, source.newer, at));
                const auto apart = hn::Sub(older, newer);
                const bool both = source.newerShare > 0 && source.newerShare < kWholeShare;
                const auto doubt =
                    both ? hn::MulAdd(apart, apart, hn::Set(d, kAgreement)) : hn::Set(d, kOneSided);
                const auto near =
                    hn::Mul(k % 2 == 0 ? left : right, hn::Set(d, k < 2 ? 16 - below : below));
                const auto weight = hn::Div(near, hn::Mul(doubt, doubt));
                const auto share = hn::Set(d, static_cast<float>(source.newerShare) / kWholeShare);
                sum = hn::MulAdd(hn::NegMulAdd(apart, share, older), weight, sum);
                weights = hn::Add(weights, weight);
            }
            const auto mixed = hn::NearestInt(hn::Div(sum, weights));
            hn::StoreU(hn::DemoteTo(bytes, mixed), bytes, to + i);
        }
    }
}

// Grey levels by which a pixel may change that stands still, and by which it must differ from what
// moves.
constexpr uint8_t kStill = 6;
constexpr uint8_t kUnlike = 24;

bool MarkStill(const StillTile& tile, ptrdiff_t stride, uint8_t* mask, ptrdiff_t maskStride) {
    const hn::FixedTag<uint8_t, 8> d;
    const auto difference = [](auto a, auto b) {
        return hn::Or(hn::SaturatedSub(a, b), hn::SaturatedSub(b, a));
    };
    auto any = hn::Zero(d);
    for (ptrdiff_t row = 0; row < 8; ++row) {
        const auto older = hn::LoadU(d, tile.older + row * stride);
        const auto newer = hn::LoadU(d, tile.newer + row * stride);
        const auto fromOlder = hn::LoadU(d, tile.olderMoved + row * stride);
        const auto fromNewer = hn::LoadU(d, tile.newerMoved + row * stride);
        const auto moved = hn::Min(difference(older, fromNewer), difference(newer, fromOlder));
        const auto change = difference(older, newer);
        const auto still = hn::Eq(hn::Min(change, hn::Set(d, kStill)), change);
        const auto unlike = hn::Eq(hn::Max(moved, hn::Set(d, kUnlike)), moved);
        const auto marks = hn::VecFromMask(d, hn::And(still, unlike));
        hn::StoreU(marks, d, mask + row * maskStride);
        any = hn::Or(any, marks);
    }
    return !hn::AllTrue(d, hn::Eq(any, hn::Zero(d)));
}

// Linear between the four samples around the place.
template <class D>
hn::VFromD<D> Sampled(D d, const uint8_t* p, int x, int y, ptrdiff_t stride) {
    const hn::Rebind<uint8_t, D> bytes;
    const auto load = [&](const uint8_t* q) { return hn::PromoteTo(d, hn::LoadU(bytes, q)); };
    const auto across = [&](const uint8_t* q) {
        return hn::Add(hn::Mul(load(q), hn::Set(d, static_cast<uint16_t>(8 - x))),
                       hn::Mul(load(q + 2), hn::Set(d, static_cast<uint16_t>(x))));
    };
    const auto sum = hn::Add(hn::Mul(across(p), hn::Set(d, static_cast<uint16_t>(8 - y))),
                             hn::Mul(across(p + stride), hn::Set(d, static_cast<uint16_t>(y))));
    return hn::ShiftRight<6>(hn::Add(sum, hn::Set(d, 32)));
}

template <class D>
hn::VFromD<D> ChromaMixed(D d, const ChromaSource& source, ptrdiff_t offset, ptrdiff_t stride) {
    const auto older = Sampled(d, source.older + offset, source.olderX, source.olderY, stride);
    const auto newer = Sampled(d, source.newer + offset, source.newerX, source.newerY, stride);
    const auto sum =
        hn::Add(hn::Mul(older, hn::Set(d, static_cast<uint16_t>(kWholeShare - source.newerShare))),
                hn::Mul(newer, hn::Set(d, static_cast<uint16_t>(source.newerShare))));
    return hn::ShiftRight<6>(hn::Add(sum, hn::Set(d, kWholeShare / 2)));
}

template <class D>
size_t WriteChromaBy(D d, const ChromaSource& source, int row, ptrdiff_t stride, uint8_t* to,
                     size_t at, size_t count) {
    const hn::Rebind<uint8_t, D> bytes;
    for (; at + hn::Lanes(d) <= count; at += hn::Lanes(d)) {
        const auto mixed =
            ChromaMixed(d, source, row * stride + static_cast<ptrdiff_t>(at), stride);
        hn::StoreU(Narrow(bytes, mixed), bytes, to + at);
    }
    return at;
}

void WriteChroma(const ChromaSource& source, ptrdiff_t stride, uint8_t* to, ptrdiff_t toStride,
                 size_t count, int rows) {
    for (int row = 0; row < rows; ++row, to += toStride) {
        const size_t done =
            WriteChromaBy(hn::ScalableTag<uint16_t>(), source, row, stride, to, 0, count);
        WriteChromaBy(hn::FixedTag<uint16_t, 8>(), source, row, stride, to, done, count);
    }
}

void MixChroma(const ChromaSource (&sources)[4], ptrdiff_t stride, uint8_t* to, ptrdiff_t toStride,
               int rows) {
    const hn::FixedTag<uint16_t, 8> d;
    MixBy([&](int k, int row) { return ChromaMixed(d, sources[k], row * stride, stride); },
          kChromaRight, 4, to, toStride, rows);
}

}  // namespace qoz::host::vppservice::HWY_NAMESPACE
HWY_AFTER_NAMESPACE();

#if HWY_ONCE
namespace qoz::host::vppservice {

HWY_EXPORT(HalfPixels);
HWY_EXPORT(ChangeBrightness);
HWY_EXPORT(WindowDifference);
HWY_EXPORT(WindowDifferenceOfShapes);
HWY_EXPORT(WriteSpan);
HWY_EXPORT(MixTile);
HWY_EXPORT(WeighTile);
HWY_EXPORT(MarkStill);
HWY_EXPORT(WriteChroma);
HWY_EXPORT(MixChroma);

void halfPixels(const uint8_t* from, ptrdiff_t step, uint8_t* to, size_t count) {
    HWY_DYNAMIC_DISPATCH(HalfPixels)(from, step, to, count);
}

void changeBrightness(const uint8_t* from, uint8_t* to, size_t count, int gain, int offset) {
    HWY_DYNAMIC_DISPATCH(ChangeBrightness)(from, to, count, gain, offset);
}

uint32_t windowDifference(PixelPair a, PixelPair b, ptrdiff_t stride) {
    return HWY_DYNAMIC_DISPATCH(WindowDifference)(a, b, stride);
}

uint32_t windowDifferenceOfShapes(PixelPair a, PixelPair b, ptrdiff_t stride) {
    return HWY_DYNAMIC_DISPATCH(WindowDifferenceOfShapes)(a, b, stride);
}

void writeSpan(const TileSource& source, ptrdiff_t stride, uint8_t* to, ptrdiff_t toStride,
               size_t count, int rows) {
    HWY_DYNAMIC_DISPATCH(WriteSpan)(source, stride, to, toStride, count, rows);
}

void mixTile(const TileSource (&sources)[4], ptrdiff_t stride, uint8_t* to, ptrdiff_t toStride,
             int rows) {
    HWY_DYNAMIC_DISPATCH(MixTile)(sources, stride, to, toStride, rows);
}

void weighTile(const TileSource (&sources)[4], ptrdiff_t stride, uint8_t* to, ptrdiff_t toStride,
               int rows) {
    HWY_DYNAMIC_DISPATCH(WeighTile)(sources, stride, to, toStride, rows);
}

bool markStill(const StillTile& tile, ptrdiff_t stride, uint8_t* mask, ptrdiff_t maskStride) {
    return HWY_DYNAMIC_DISPATCH(MarkStill)(tile, stride, mask, maskStride);
}

void writeChroma(const ChromaSource& source, ptrdiff_t stride, uint8_t* to, ptrdiff_t toStride,
                 size_t count, int rows) {
    HWY_DYNAMIC_DISPATCH(WriteChroma)(source, stride, to, toStride, count, rows);
}

void mixChroma(const ChromaSource (&sources)[4], ptrdiff_t stride, uint8_t* to, ptrdiff_t toStride,
               int rows) {
    HWY_DYNAMIC_DISPATCH(MixChroma)(sources, stride, to, toStride, rows);
}

}  // namespace qoz::host::vppservice
#endif
