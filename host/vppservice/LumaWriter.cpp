// SPDX-License-Identifier: Apache-2.0
// The luma of a frame in between.
#include "host/vppservice/FrameWriter.h"

#undef HWY_TARGET_INCLUDE
#define HWY_TARGET_INCLUDE "host/vppservice/LumaWriter.cpp"
#include <hwy/foreach_target.h>  // compiles what follows once for each target
#include <hwy/highway.h>
// After it, as it is compiled once for each target too.
#include "host/vppservice/Tiles-inl.h"

HWY_BEFORE_NAMESPACE();
namespace qoz::host::vppservice::HWY_NAMESPACE {
namespace {

// Squared grey levels that two sources may differ by through noise and fractions of a pixel.
constexpr float kAgreement = 12;
constexpr float kOneSided = 100;  // what is taken for the disagreement where there is but one

constexpr Shares kLumaShares = sharesOf(1, kNodeStep);

// One prediction: from both sources, each with its share.
struct LumaSource {
    PixelPair older;
    PixelPair asBright;  // the older source, as bright as the newer
    PixelPair newer;
    int newerShare;  // of kWholeShare

    bool even() const { return newerShare * 2 == kWholeShare; }
};

// Reads what a node predicts for a tile, from planes that all have one size.
class LumaReader {
  public:
    LumaReader(const SubpixelPlanes& older, const SubpixelPlanes& asBright,
               const SubpixelPlanes& newer)
        : mOlder(older), mAsBright(asBright), mNewer(newer), mPlaces(newer) {}

    const PlaceFinder& places() const { return mPlaces; }
    HWY_INLINE LumaSource at(const NodeMotion& node, int x, int y) const {
        const Places places = mPlaces.of(node, x, y);
        return {mOlder.at(places.older), mAsBright.at(places.older), mNewer.at(places.newer),
                places.newerShare};
    }

  private:
    const SubpixelPlanes& mOlder;
    const SubpixelPlanes& mAsBright;
    const SubpixelPlanes& mNewer;
    const PlaceFinder mPlaces;
};

// Both sources by their shares.
template <class D>
HWY_INLINE hn::VFromD<D> mixed(D d, const LumaSource& source, ptrdiff_t offset) {
    if (source.newerShare == 0) return meanOf(d, source.older, offset);
    if (source.newerShare == kWholeShare) return meanOf(d, source.newer, offset);
    const auto older = meanOf(d, source.older, offset);
    const auto newer = meanOf(d, source.newer, offset);
    if (source.even()) return hn::AverageRound(older, newer);
    const hn::Rebind<uint16_t, hn::Half<D>> wide;
    const hn::Half<D> half;
    const auto share = hn::Set(wide, static_cast<uint16_t>(source.newerShare));
    const auto rest = hn::Set(wide, static_cast<uint16_t>(kWholeShare - source.newerShare));
    const auto mix = [&](auto a, auto b) HWY_ATTR {
        const auto sum =
            hn::Add(hn::Mul(hn::PromoteTo(wide, a), rest), hn::Mul(hn::PromoteTo(wide, b), share));
        return hn::ShiftRight<6>(hn::Add(sum, hn::Set(wide, kWholeShare / 2)));
    };
    const auto low = mix(hn::LowerHalf(half, older), hn::LowerHalf(half, newer));
    const auto high = mix(hn::UpperHalf(half, older), hn::UpperHalf(half, newer));
    return hn::Combine(d, narrow(half, high), narrow(half, low));
}

template <class D>
HWY_INLINE size_t writeSpanBy(D d, const LumaSource& source, ptrdiff_t from, uint8_t* to, size_t at,
                              size_t count) {
    for (; at + hn::Lanes(d) <= count; at += hn::Lanes(d))
        hn::StoreU(mixed(d, source, from + static_cast<ptrdiff_t>(at)), d, to + at);
    return at;
}

HWY_INLINE void writeSpan(const LumaSource& source, ptrdiff_t stride, uint8_t* to,
                          ptrdiff_t toStride, size_t count, int rows) {
    for (int row = 0; row < rows; ++row, to += toStride) {
        const ptrdiff_t from = row * stride;
        const size_t done = writeSpanBy(hn::ScalableTag<uint8_t>(), source, from, to, 0, count);
        writeSpanBy(hn::FixedTag<uint8_t, 8>(), source, from, to, done, count);
    }
}

HWY_INLINE void mixTile(const Tile& tile, const LumaSource (&sources)[4], ptrdiff_t stride,
                        uint8_t* to, ptrdiff_t toStride, int rows) {
    const Predictions predictions(tile, [&](size_t k, uint8_t* pixels) HWY_ATTR {
        const hn::FixedTag<uint8_t, 8> d;
        const LumaSource source = sources[k];
        for (ptrdiff_t row = 0; row < kNodeStep; ++row)
            hn::StoreU(mixed(d, source, row * stride), d, pixels + row * kNodeStep);
    });
    HWY_ALIGN uint8_t pixels[kTilePixels];
    predictions.mix(kLumaShares, kTilePixels, pixels);
    copyTile(pixels, to, toStride, rows);
}

// By distance, and the more by how well the two sources of a prediction agree at each pixel.
HWY_INLINE void weighTile(const LumaSource (&sources)[4], ptrdiff_t stride, uint8_t* to,
                          ptrdiff_t toStride, int rows) {
    const hn::FixedTag<uint8_t, 8> eight;
    HWY_ALIGN uint8_t older[4][kTilePixels];
    HWY_ALIGN uint8_t asBright[4][kTilePixels];
    HWY_ALIGN uint8_t newer[4][kTilePixels];
    const bool fades = sources[0].older.first != sources[0].asBright.first;
    const auto& compared = fades ? asBright : older;
    for (size_t k = 0; k < 4; ++k) {
        const LumaSource source = sources[k];
        for (ptrdiff_t row = 0; row < kNodeStep; ++row) {
            const ptrdiff_t at = row * kNodeStep;
            hn::StoreU(meanOf(eight, source.older, row * stride), eight, older[k] + at);
            hn::StoreU(meanOf(eight, source.newer, row * stride), eight, newer[k] + at);
            if (!fades) continue;
            hn::StoreU(meanOf(eight, source.asBright, row * stride), eight, asBright[k] + at);
        }
    }

    const hn::CappedTag<float, 16> d;
    const hn::Rebind<int32_t, decltype(d)> ints;
    const hn::Rebind<uint16_t, decltype(d)> words;
    const hn::Rebind<uint8_t, decltype(d)> bytes;
    HWY_ALIGN uint8_t pixels[kTilePixels];
    for (size_t i = 0; i < kTilePixels; i += hn::Lanes(d)) {
        const auto share = [&](const uint16_t* p) HWY_ATTR {
            return hn::ConvertTo(d, hn::PromoteTo(ints, hn::Load(words, p + i)));
        };
        const auto load = [&](const uint8_t* p) HWY_ATTR {
            return hn::ConvertTo(d, hn::PromoteTo(ints, hn::LoadU(bytes, p + i)));
        };
        const auto right = share(kLumaShares.right);
        const auto below = share(kLumaShares.below);
        const auto left = hn::Sub(hn::Set(d, 16), right);
        const auto above = hn::Sub(hn::Set(d, 16), below);
        auto sum = hn::Zero(d);
        auto weights = hn::Zero(d);
        for (size_t k = 0; k < 4; ++k) {
            const int newerShare = sources[k].newerShare;
            const auto from = load(older[k]);
            const auto until = load(newer[k]);
            const auto unlike = hn::Sub(load(compared[k]), until);
            const bool both = newerShare > 0 && newerShare < kWholeShare;
            const auto doubt =
                both ? hn::MulAdd(unlike, unlike, hn::Set(d, kAgreement)) : hn::Set(d, kOneSided);
            const auto near = hn::Mul(k % 2 == 0 ? left : right, k < 2 ? above : below);
            // Nearly will do: the weights are summed as they are.
            const auto weight = hn::Mul(near, hn::ApproximateReciprocal(hn::Mul(doubt, doubt)));
            const auto part = hn::Set(d, static_cast<float>(newerShare) / kWholeShare);
            sum = hn::MulAdd(hn::MulAdd(hn::Sub(until, from), part, from), weight, sum);
            weights = hn::Add(weights, weight);
        }
        const auto mean = hn::NearestInt(hn::Div(sum, weights));
        hn::StoreU(hn::DemoteTo(bytes, mean), bytes, pixels + i);
    }
    copyTile(pixels, to, toStride, rows);
}

void WriteLuma(const MotionPlan& plan, const SubpixelPlanes& older, const SubpixelPlanes& asBright,
               const SubpixelPlanes& newer, const Nv12Canvas& to) {
    const LumaReader reader(older, asBright, newer);
    const ptrdiff_t stride = newer.stride();
    const auto toStride = static_cast<ptrdiff_t>(to.stride);
    const auto height = static_cast<int>(to.size.height);
    for (int row = 0; row * kNodeStep < height; ++row) {
        const int rows = std::min(kNodeStep, height - row * kNodeStep);
        const auto out = [&](int x, int y) { return to.luma + y * toStride + x; };
        forEachTile(
            plan, reader.places(), static_cast<int>(to.size.width), row,
            [&](const Tile& tile, int x, int y, int count) HWY_ATTR {
                writeSpan(reader.at(*tile.nodes[0], x, y), stride, out(x, y), toStride,
                          static_cast<size_t>(count) * size_t{kNodeStep}, rows);
            },
            [&](const Tile& tile, int x, int y) HWY_ATTR {
                const LumaSource sources[4] = {
                    reader.at(*tile.nodes[0], x, y), reader.at(*tile.nodes[1], x, y),
                    reader.at(*tile.nodes[2], x, y), reader.at(*tile.nodes[3], x, y)};
                if (tile.apart()) {
                    weighTile(sources, stride, out(x, y), toStride, rows);
                } else {
                    mixTile(tile, sources, stride, out(x, y), toStride, rows);
                }
            });
    }
}

}  // namespace
}  // namespace qoz::host::vppservice::HWY_NAMESPACE
HWY_AFTER_NAMESPACE();

#if HWY_ONCE
namespace qoz::host::vppservice {
namespace {

HWY_EXPORT(WriteLuma);

}  // namespace

void writeLuma(const MotionPlan& plan, const SubpixelPlanes& older, const SubpixelPlanes& asBright,
               const SubpixelPlanes& newer, const Nv12Canvas& to) {
    HWY_DYNAMIC_DISPATCH(WriteLuma)(plan, older, asBright, newer, to);
}

}  // namespace qoz::host::vppservice
#endif
