// SPDX-License-Identifier: Apache-2.0
// Writes the luma of an interpolated frame.
#include "host/vppservice/FrameWriter.h"

#undef HWY_TARGET_INCLUDE
#define HWY_TARGET_INCLUDE "host/vppservice/LumaWriter.cpp"
#include <hwy/foreach_target.h>  // compiles the rest of this file for each target
#include <hwy/highway.h>
// These follow it because they are compiled for each target too.
#include "host/vppservice/Tiles-inl.h"

HWY_BEFORE_NAMESPACE();
namespace qoz::host::vppservice::HWY_NAMESPACE {
namespace {

// Squared grey levels. kAgreement is the difference of the sources that noise and fractions of a
// pixel explain.
constexpr float kAgreement = 12;
constexpr float kOneSided = 100;  // the assumed difference if only one source is used

constexpr Shares kLumaShares = sharesOf(1, kNodeStep);

// The places in both sources that one node predicts a tile from.
struct LumaSource {
    PixelPair older;
    PixelPair asBright;  // the older source with the brightness of the newer
    PixelPair newer;
    int newerShare;  // of kWholeShare

    bool even() const { return newerShare * 2 == kWholeShare; }
};

// Finds the places that a node predicts a tile from. All planes have one size.
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

// Reads both sources and mixes them by their shares.
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

// Writes `count` bytes of each row, no fewer than a vector's lanes. The last vector of a row may
// overlap the one before.
template <class D>
HWY_INLINE void writeSpanBy(D d, const LumaSource& source, ptrdiff_t stride, uint8_t* to,
                            ptrdiff_t toStride, size_t count, int rows) {
    const auto last = static_cast<ptrdiff_t>(count - hn::Lanes(d));
    for (int row = 0; row < rows; ++row, to += toStride) {
        const ptrdiff_t from = row * stride;
        const auto write = [&](ptrdiff_t at)
                               HWY_ATTR { hn::StoreU(mixed(d, source, from + at), d, to + at); };
        for (ptrdiff_t at = 0; at < last; at += static_cast<ptrdiff_t>(hn::Lanes(d)))
            write(at);
        write(last);
    }
}

// Writes a span of tiles that move alike, with the widest vectors that fit.
HWY_INLINE void writeSpan(const LumaSource& source, ptrdiff_t stride, uint8_t* to,
                          ptrdiff_t toStride, size_t count, int rows) {
    const hn::ScalableTag<uint8_t> most;
    const hn::CappedTag<uint8_t, 32> fewer;
    const hn::CappedTag<uint8_t, 16> few;
    if (count >= hn::Lanes(most)) {
        writeSpanBy(most, source, stride, to, toStride, count, rows);
    } else if (count >= hn::Lanes(fewer)) {
        writeSpanBy(fewer, source, stride, to, toStride, count, rows);
    } else if (count >= hn::Lanes(few)) {
        writeSpanBy(few, source, stride, to, toStride, count, rows);
    } else {
        writeSpanBy(hn::FixedTag<uint8_t, 8>(), source, stride, to, toStride, count, rows);
    }
}

// Writes the prediction of one node for a whole tile, in rows without padding. A vector is twice as
// wide as a tile; its second half is read but not kept.
HWY_INLINE void predictTile(const LumaSource& source, ptrdiff_t stride, uint8_t* pixels) {
    const Bytes16 d;
    const hn::Half<Bytes16> half;
    const auto put = [&](ptrdiff_t row, auto bytes) HWY_ATTR {
        hn::StoreU(hn::LowerHalf(half, bytes), half, pixels + row * kNodeStep);
    };
    if (source.even()) {
        for (ptrdiff_t row = 0; row < kNodeStep; ++row) {
            put(row, hn::AverageRound(meanOf(d, source.older, row * stride),
                                      meanOf(d, source.newer, row * stride)));
        }
        return;
    }
    for (ptrdiff_t row = 0; row < kNodeStep; ++row)
        put(row, mixed(d, source, row * stride));
}

// Mixes the predictions of a tile's four nodes by distance.
HWY_INLINE void mixTile(const Tile& tile, const LumaSource (&sources)[4], ptrdiff_t stride,
                        uint8_t* to, ptrdiff_t toStride, int rows) {
    const Predictions predictions(tile, [&](size_t k, uint8_t* pixels) HWY_ATTR {
        predictTile(LumaSource(sources[k]), stride, pixels);
    });
    HWY_ALIGN uint8_t pixels[kTilePixels];
    predictions.mix(kLumaShares, kTilePixels, pixels);
    copyTile(pixels, to, toStride, rows);
}

// Mixes the predictions of a tile's four nodes. The weight of a prediction falls with the distance
// to its node, and at each pixel with the difference of the two sources.
HWY_INLINE void weighTile(const LumaSource (&sources)[4], ptrdiff_t stride, uint8_t* to,
                          ptrdiff_t toStride, int rows) {
    const Bytes16 d16;
    const hn::Half<Bytes16> eight;
    HWY_ALIGN uint8_t older[4][kTilePixels];
    HWY_ALIGN uint8_t asBright[4][kTilePixels];
    HWY_ALIGN uint8_t newer[4][kTilePixels];
    const bool fades = sources[0].older.first != sources[0].asBright.first;
    for (size_t k = 0; k < 4; ++k) {
        const LumaSource source = sources[k];
        const auto read = [&](const PixelPair& pair, uint8_t* pixels) HWY_ATTR {
            for (ptrdiff_t row = 0; row < kNodeStep; ++row) {
                hn::StoreU(hn::LowerHalf(eight, meanOf(d16, pair, row * stride)), eight,
                           pixels + row * kNodeStep);
            }
        };
        read(source.older, older[k]);
        read(source.newer, newer[k]);
        if (fades) read(source.asBright, asBright[k]);
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
            const auto unlike = hn::Sub(fades ? load(asBright[k]) : from, until);
            const bool both = newerShare > 0 && newerShare < kWholeShare;
            const auto doubt =
                both ? hn::MulAdd(unlike, unlike, hn::Set(d, kAgreement)) : hn::Set(d, kOneSided);
            const auto near = hn::Mul(k % 2 == 0 ? left : right, k < 2 ? above : below);
            // An approximate reciprocal suffices: the mix is divided by the sum of the same
            // weights.
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

// Writes the luma of rows of tiles.
void WriteLuma(const MotionPlan& plan, const SubpixelPlanes& older, const SubpixelPlanes& asBright,
               const SubpixelPlanes& newer, TileRows tiles, const Nv12Canvas& to) {
    const LumaReader reader(older, asBright, newer);
    const ptrdiff_t stride = newer.stride();
    const auto toStride = static_cast<ptrdiff_t>(to.stride);
    const auto height = static_cast<int>(to.size.height);
    for (int row = tiles.first; row < tiles.end; ++row) {
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
               const SubpixelPlanes& newer, TileRows tiles, const Nv12Canvas& to) {
    HWY_DYNAMIC_DISPATCH(WriteLuma)(plan, older, asBright, newer, tiles, to);
}

}  // namespace qoz::host::vppservice
#endif
