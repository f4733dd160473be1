// SPDX-License-Identifier: Apache-2.0
#include "qozplay/media/YuvToRgba.h"

#include <algorithm>
#include <cstring>

#undef HWY_TARGET_INCLUDE
#define HWY_TARGET_INCLUDE "qozplay/media/YuvToRgba.cpp"
#include <hwy/foreach_target.h>  // compiles the rest of this file once for each target
#include <hwy/highway.h>

HWY_BEFORE_NAMESPACE();
namespace qozplay::HWY_NAMESPACE {
namespace {
namespace hn = hwy::HWY_NAMESPACE;

constexpr size_t kChunk = 16;  // number of pixels that are converted at a time

using Pixels = hn::CappedTag<int32_t, kChunk>;  // each vector lane has one pixel
using Halves = hn::Repartition<int16_t, Pixels>;
using Words = hn::VFromD<Pixels>;

// Multiplies the lower half of each word by `lower` and its upper half by `upper`, and returns the
// sums.
HWY_INLINE Words sumOfProducts(Words pairs, int lower, int upper) {
    const Pixels d;
    const auto factors = hn::BitCast(Halves(), hn::Set(d, (upper << 16) | (lower & 0xFFFF)));
    auto odd = hn::Zero(d);
    const auto even =
        hn::ReorderWidenMulAccumulate(d, hn::BitCast(Halves(), pairs), factors, hn::Zero(d), odd);
    return hn::RearrangeToOddPlusEven(even, odd);
}

// Puts two values into the lower and the upper half of each word.
HWY_INLINE Words pairOf(Words lower, Words upper) {
    return hn::Or(hn::And(lower, hn::Set(Pixels(), 0xFFFF)), hn::ShiftLeft<16>(upper));
}

// Rounds a sum in units of 1 / kYuvUnit to a whole level from 0 to 255.
HWY_INLINE Words whole(Words sum) {
    const Pixels d;
    const auto rounded = hn::ShiftRight<kYuvShift>(hn::Add(sum, hn::Set(d, kYuvUnit / 2)));
    return hn::Min(hn::Max(rounded, hn::Zero(d)), hn::Set(d, 255));
}

// Converts kChunk pixels of one row, which use kChunk / 2 samples of each chroma plane.
HWY_INLINE void convertChunk(const YuvMatrix& matrix, const uint8_t* y, const uint8_t* u,
                             const uint8_t* v, uint8_t* rgba) {
    const hn::FixedTag<uint8_t, kChunk / 2> half;
    const hn::FixedTag<uint8_t, kChunk> full;
    HWY_ALIGN uint8_t us[kChunk];
    HWY_ALIGN uint8_t vs[kChunk];
    const auto twice = [&](const uint8_t* samples, uint8_t* to) HWY_ATTR {
        const auto once = hn::ZeroExtendVector(full, hn::LoadU(half, samples));
        hn::Store(hn::InterleaveLower(full, once, once), full, to);
    };
    twice(u, us);
    twice(v, vs);

    const Pixels d;
    const hn::Rebind<uint8_t, Pixels> bytes;
    for (size_t i = 0; i < kChunk; i += hn::Lanes(d)) {
        const auto load = [&](const uint8_t* p, int none) HWY_ATTR {
            return hn::Sub(hn::PromoteTo(d, hn::LoadU(bytes, p + i)), hn::Set(d, none));
        };
        const auto luma = load(y, matrix.black);
        const auto blueness = load(us, 128);
        const auto redness = load(vs, 128);
        const auto withBlue = pairOf(luma, blueness);
        const auto red = whole(sumOfProducts(pairOf(luma, redness), matrix.luma, matrix.redV));
        const auto blue = whole(sumOfProducts(withBlue, matrix.luma, matrix.blueU));
        const auto green = whole(hn::Add(sumOfProducts(withBlue, matrix.luma, matrix.greenU),
                                         hn::Mul(redness, hn::Set(d, matrix.greenV))));
        const auto opaque = hn::Set(d, static_cast<int32_t>(0xFF000000));
        const auto pixels =
            hn::Or(hn::Or(red, hn::ShiftLeft<8>(green)), hn::Or(hn::ShiftLeft<16>(blue), opaque));
        const hn::Repartition<uint8_t, Pixels> out;
        hn::StoreU(hn::BitCast(out, pixels), out, rgba + 4 * i);
    }
}

// Converts one row of `width` pixels.
void ConvertRow(const YuvMatrix& matrix, const uint8_t* y, const uint8_t* u, const uint8_t* v,
                uint8_t* rgba, size_t width) {
    size_t x = 0;
    for (; x + kChunk <= width; x += kChunk)
        convertChunk(matrix, y + x, u + x / 2, v + x / 2, rgba + 4 * x);
    if (x == width) return;
    // The last pixels of the row are fewer than a chunk, so they are copied to buffers of a full
    // chunk.
    const size_t left = width - x;
    uint8_t chroma[2][kChunk / 2] = {};
    uint8_t luma[kChunk] = {};
    uint8_t out[4 * kChunk];
    std::memcpy(luma, y + x, left);
    std::memcpy(chroma[0], u + x / 2, (left + 1) / 2);
    std::memcpy(chroma[1], v + x / 2, (left + 1) / 2);
    convertChunk(matrix, luma, chroma[0], chroma[1], out);
    std::memcpy(rgba + 4 * x, out, 4 * left);
}

void YuvToRgba(const YuvMatrix& matrix, const YuvPlanes& from, uint8_t* rgba, size_t stride,
               size_t width, size_t height) {
    for (size_t row = 0; row < height; ++row) {
        const auto down = static_cast<ptrdiff_t>(row);
        ConvertRow(matrix, from.y + down * from.yStride, from.u + down / 2 * from.uStride,
                   from.v + down / 2 * from.vStride, rgba + row * stride, width);
    }
}

}  // namespace
}  // namespace qozplay::HWY_NAMESPACE
HWY_AFTER_NAMESPACE();

#if HWY_ONCE
namespace qozplay {
namespace {

HWY_EXPORT(YuvToRgba);

}  // namespace

std::optional<YuvMatrix> yuvMatrix(AVColorSpace space, bool fullRange) {
    double red = 0;  // the weights of red and blue in luma
    double blue = 0;
    switch (space) {
        case AVCOL_SPC_BT709:
            red = 0.2126, blue = 0.0722;
            break;
        case AVCOL_SPC_SMPTE170M:
        case AVCOL_SPC_BT470BG:
            red = 0.299, blue = 0.114;
            break;
        default:
            return std::nullopt;
    }
    const double green = 1 - red - blue;
    const double chroma = fullRange ? 1 : 255.0 / 224;
    const auto part = [](double value) {
        return static_cast<int16_t>(value * kYuvUnit + (value < 0 ? -0.5 : 0.5));
    };
    return YuvMatrix{.black = static_cast<int16_t>(fullRange ? 0 : 16),
                     .luma = part(fullRange ? 1 : 255.0 / 219),
                     .redV = part(2 * (1 - red) * chroma),
                     .greenU = part(-2 * (1 - blue) * blue / green * chroma),
                     .greenV = part(-2 * (1 - red) * red / green * chroma),
                     .blueU = part(2 * (1 - blue) * chroma)};
}

void yuvToRgba(const YuvMatrix& matrix, const YuvPlanes& from, uint8_t* rgba, size_t stride,
               size_t width, size_t height) {
    HWY_DYNAMIC_DISPATCH(YuvToRgba)(matrix, from, rgba, stride, width, height);
}

}  // namespace qozplay
#endif
