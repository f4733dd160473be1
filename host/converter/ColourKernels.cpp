// SPDX-License-Identifier: Apache-2.0
#include <host/converter/ColourKernels.h>

#include <algorithm>
#include <cstring>

#undef HWY_TARGET_INCLUDE
#define HWY_TARGET_INCLUDE "host/converter/ColourKernels.cpp"
#include <hwy/foreach_target.h>  // compiles the rest of this file for each target
#include <hwy/highway.h>

HWY_BEFORE_NAMESPACE();
namespace qoz::host::HWY_NAMESPACE {
namespace hn = hwy::HWY_NAMESPACE;

using Pixels = hn::ScalableTag<int32_t>;  // one pixel in each lane
using Halves = hn::Repartition<int16_t, Pixels>;
using Words = hn::VFromD<Pixels>;

// The colours of pixels, each in 16 bits: red and blue share a word, green has a word of its own.
struct Colours {
    Words redBlue;
    Words green;
};

// Splits pixels into their colours; alpha is dropped.
HWY_INLINE Colours Split(const uint8_t* rgba) {
    const Pixels d;
    const hn::RebindToUnsigned<Pixels> du;
    const hn::Repartition<uint8_t, Pixels> bytes;
    const auto pixel = hn::BitCast(du, hn::LoadU(bytes, rgba));
    const auto low = hn::Set(du, 0x00FF00FF);
    const auto green = hn::And(hn::ShiftRight<8>(pixel), hn::Set(du, 0xFF));
    return {hn::BitCast(d, hn::And(pixel, low)), hn::BitCast(d, green)};
}

// Returns the sum of the colours, multiplied by their weights.
HWY_INLINE Words Weighed(const Colours& colours, const int16_t (&shares)[3]) {
    const Pixels d;
    const Halves halves;
    const auto pair = [&](int first, int second) {
        return hn::BitCast(halves, hn::Set(d, (second << 16) | (first & 0xFFFF)));
    };
    const auto product = [&](Words words, auto factors) {
        auto upper = hn::Zero(d);
        const auto lower = hn::ReorderWidenMulAccumulate(d, hn::BitCast(halves, words), factors,
                                                         hn::Zero(d), upper);
        return hn::RearrangeToOddPlusEven(lower, upper);
    };
    return hn::Add(product(colours.redBlue, pair(shares[0], shares[2])),
                   product(colours.green, pair(shares[1], 0)));
}

// Stores the lower halves of two vectors of words as bytes, one vector after the other.
HWY_INLINE void StoreBytes(Words first, Words second, uint8_t* to) {
    const Halves halves;
    const hn::Rebind<uint8_t, Halves> bytes;
    const auto all =
        hn::ConcatEven(halves, hn::BitCast(halves, second), hn::BitCast(halves, first));
    hn::StoreU(hn::DemoteTo(bytes, all), bytes, to);
}

HWY_INLINE Words LumaOf(const Colours& colours, const ColourMatrix& matrix) {
    const auto dark = hn::Set(Pixels(), 16 * kColourUnit + kColourUnit / 2);
    return hn::ShiftRight<15>(hn::Add(Weighed(colours, matrix.y), dark));
}

// Returns chroma from the sum of four pixels; the shift includes the division by four.
HWY_INLINE Words ChromaOf(const Colours& sums, const int16_t (&shares)[3]) {
    const auto grey = hn::Set(Pixels(), 4 * 128 * kColourUnit + 2 * kColourUnit);
    return hn::ShiftRight<17>(hn::Add(Weighed(sums, shares), grey));
}

HWY_INLINE Colours Sum(const Colours& a, const Colours& b) {
    return {hn::Add(a.redBlue, b.redBlue), hn::Add(a.green, b.green)};
}

// Converts the first pixels of both rows, twice as many as a vector has lanes.
HWY_INLINE void Convert(const ColourMatrix& matrix, const RowPair& rows) {
    const Pixels d;
    const size_t lanes = hn::Lanes(d);
    const Colours upper[2] = {Split(rows.upper), Split(rows.upper + 4 * lanes)};
    const Colours lower[2] = {Split(rows.lower), Split(rows.lower + 4 * lanes)};
    StoreBytes(LumaOf(upper[0], matrix), LumaOf(upper[1], matrix), rows.upperLuma);
    StoreBytes(LumaOf(lower[0], matrix), LumaOf(lower[1], matrix), rows.lowerLuma);

    const Colours left = Sum(upper[0], lower[0]);
    const Colours right = Sum(upper[1], lower[1]);
    const auto ofTwo = [d](Words a, Words b) HWY_ATTR {
        return hn::Add(hn::ConcatEven(d, b, a), hn::ConcatOdd(d, b, a));
    };
    const Colours sums = {ofTwo(left.redBlue, right.redBlue), ofTwo(left.green, right.green)};
    const Halves halves;
    const hn::Rebind<uint8_t, Halves> bytes;
    const auto u = ChromaOf(sums, matrix.u);
    const auto v = ChromaOf(sums, matrix.v);
    const auto both = hn::BitCast(halves, hn::Or(u, hn::ShiftLeft<16>(v)));
    hn::StoreU(hn::DemoteTo(bytes, both), bytes, rows.chroma);
}

void RgbaToNv12(const ColourMatrix& matrix, const RowPair& rows, size_t width) {
    const size_t lanes = 2 * hn::Lanes(Pixels());
    size_t x = 0;
    for (; x + lanes <= width; x += lanes) {
        Convert(matrix, {rows.upper + 4 * x, rows.lower + 4 * x, rows.upperLuma + x,
                         rows.lowerLuma + x, rows.chroma + x});
    }
    if (x == width) return;
    // The remaining pixels are converted in buffers of a full vector's length, padded with the last
    // pixel.
    constexpr size_t kMost = size_t{2} * 64;  // lanes of any target
    uint8_t in[2][4 * kMost];
    uint8_t out[3][kMost];
    for (size_t i = 0; i < lanes; ++i) {
        const size_t from = 4 * std::min(x + i, width - 1);
        std::memcpy(in[0] + 4 * i, rows.upper + from, 4);
        std::memcpy(in[1] + 4 * i, rows.lower + from, 4);
    }
    Convert(matrix, {in[0], in[1], out[0], out[1], out[2]});
    std::memcpy(rows.upperLuma + x, out[0], width - x);
    std::memcpy(rows.lowerLuma + x, out[1], width - x);
    std::memcpy(rows.chroma + x, out[2], (width - x + 1) / 2 * 2);
}

}  // namespace qoz::host::HWY_NAMESPACE
HWY_AFTER_NAMESPACE();

#if HWY_ONCE
namespace qoz::host {

HWY_EXPORT(RgbaToNv12);

void rgbaToNv12(const ColourMatrix& matrix, const RowPair& rows, size_t width) {
    HWY_DYNAMIC_DISPATCH(RgbaToNv12)(matrix, rows, width);
}

}  // namespace qoz::host
#endif
