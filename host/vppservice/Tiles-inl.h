// SPDX-License-Identifier: Apache-2.0
// Tiles of 8 x 8 pixels between the nodes of a plan: the places that their motion leads to, the
// walk over a row of tiles, and the mix of four predictions. For files that are compiled once for
// each vector extension.

// This file is included once for each extension, so it has no `#pragma once`.
#if defined(QOZ_HOST_VPPSERVICE_TILES_INL_H) == defined(HWY_TARGET_TOGGLE)
#ifdef QOZ_HOST_VPPSERVICE_TILES_INL_H
#undef QOZ_HOST_VPPSERVICE_TILES_INL_H
#else
#define QOZ_HOST_VPPSERVICE_TILES_INL_H
#endif

#include <hwy/highway.h>

#include <algorithm>
#include <cstdlib>
#include <cstring>

#include "host/vppservice/MotionPlan.h"
#include "host/vppservice/Window-inl.h"

HWY_BEFORE_NAMESPACE();
namespace qoz::host::vppservice::HWY_NAMESPACE {

// Nodes whose motions differ by more than this belong to different objects. In quarters of a pixel.
constexpr int kApart = 4;

// The bytes of a tile in rows without padding. Chroma has half as many rows.
constexpr size_t kTilePixels = size_t{kNodeStep} * kNodeStep;

// For each byte of a tile, the share of the right-hand nodes and the share of the lower nodes, of
// 16.
struct Shares {
    HWY_ALIGN uint16_t right[kTilePixels];
    HWY_ALIGN uint16_t below[kTilePixels];
};

// Computes the shares: `wide` is the number of bytes in a row that belong to one place, `tall` the
// number of rows between two nodes.
constexpr Shares sharesOf(size_t wide, size_t tall) {
    constexpr size_t kStep = kNodeStep;
    Shares shares{};
    for (size_t i = 0; i < kTilePixels; ++i) {
        shares.right[i] = static_cast<uint16_t>((i % kStep / wide * 2 + 1) * wide);
        shares.below[i] = static_cast<uint16_t>((i / kStep * 2 + 1) * (kStep / tall));
    }
    return shares;
}

using NodeLanes = hn::FixedTag<int16_t, 8>;

// Loads a node's motion and share as one vector.
HWY_INLINE hn::VFromD<NodeLanes> lanesOf(const NodeMotion& node) {
    static_assert(sizeof(NodeMotion) == sizeof(int16_t) * 8);
    return hn::Load(NodeLanes(), &node.olderX);
}

// Whether all lanes are 0.
HWY_INLINE bool isZero(hn::VFromD<NodeLanes> lanes) {
    return hn::AllTrue(NodeLanes(), hn::Eq(lanes, hn::Zero(NodeLanes())));
}

// A tile with the four nodes around it: top left, top right, bottom left, bottom right.
struct Tile {
    const NodeMotion* nodes[4];

    HWY_INLINE Tile(const MotionPlan& plan, int column, int row)
        : nodes{&plan.at(column, row), &plan.at(column, row) + 1, &plan.at(column, row + 1),
                &plan.at(column, row + 1) + 1} {}

    HWY_INLINE hn::VFromD<NodeLanes> lanes(size_t node) const { return lanesOf(*nodes[node]); }
    // Whether two nodes have the same motion and share.
    HWY_INLINE bool same(size_t a, size_t b) const { return isZero(hn::Xor(lanes(a), lanes(b))); }
    // Whether all four nodes have the same motion and share.
    HWY_INLINE bool alike() const {
        const auto first = lanes(0);
        return isZero(hn::Or(hn::Or(hn::Xor(first, lanes(1)), hn::Xor(first, lanes(2))),
                             hn::Xor(first, lanes(3))));
    }
    // Whether the motion of the nodes differs by more than kApart.
    HWY_INLINE bool apart() const {
        const NodeLanes d;
        const auto between = [this](size_t a, size_t b)
                                 HWY_ATTR { return hn::Abs(hn::Sub(lanes(a), lanes(b))); };
        const auto most = hn::Max(hn::Max(between(0, 3), between(1, 2)), between(0, 1));
        constexpr int16_t kAny = INT16_MAX;
        HWY_ALIGN static constexpr int16_t kLimits[8] = {kAny,   kAny,   kAny, kAny,
                                                         kApart, kApart, kAny, kAny};
        return !hn::AllFalse(d, hn::Gt(most, hn::Load(d, kLimits)));
    }
    // Whether all four nodes have the same share.
    HWY_INLINE bool sharedAlike() const {
        return nodes[0]->newerShare == nodes[1]->newerShare &&
               nodes[0]->newerShare == nodes[2]->newerShare &&
               nodes[0]->newerShare == nodes[3]->newerShare;
    }
    // The mean motion of nodes that are not apart and have the same share.
    HWY_INLINE NodeMotion mean() const {
        const NodeLanes d;
        const auto sum = hn::Add(hn::Add(lanes(0), lanes(1)), hn::Add(lanes(2), lanes(3)));
        NodeMotion of;
        hn::Store(hn::ShiftRight<2>(hn::Add(sum, hn::Set(d, 2))), d, &of.olderX);
        of.newerShare = nodes[0]->newerShare;
        return of;
    }
};

// The places in both sources that a node's motion leads to from a tile, and the share of the newer
// source.
struct Places {
    QuarterPlace older;
    QuarterPlace newer;
    int newerShare;  // of kWholeShare
};

// Finds the places of tiles in two sources of one size.
class PlaceFinder {
  public:
    explicit PlaceFinder(const SubpixelPlanes& planes)
        : mLastX(4 * (planes.width() - kNodeStep)), mLastY(4 * (planes.height() - kNodeStep)) {}

    // Returns the places for a tile at pixel (x, y). If the motion leads out of one source only,
    // the other one gets the whole share. Places beyond the rim are moved into it.
    HWY_INLINE Places of(const NodeMotion& node, int x, int y) const {
        const Lanes d;
        auto to = placesOf(node, x, y);
        const auto out = outside(to, x, y);
        int share = node.newerShare;
        if (!hn::AllFalse(d, out)) {
            HWY_ALIGN int32_t leaves[4];
            hn::Store(hn::VecFromMask(d, out), d, leaves);
            const bool leavesOlder = (leaves[0] | leaves[1]) != 0;
            const bool leavesNewer = (leaves[2] | leaves[3]) != 0;
            if (leavesOlder != leavesNewer) share = leavesNewer ? 0 : kWholeShare;
            // The limit keeps a whole tile within the rim.
            to = hn::Min(hn::Max(to, hn::Set(d, -4 * kOut)),
                         pairOf(mLastX + 4 * kOut, mLastY + 4 * kOut));
        }
        HWY_ALIGN int32_t at[4];
        hn::Store(to, d, at);
        return {{at[0], at[1]}, {at[2], at[3]}, share};
    }
    // Whether the motion leads out of neither source.
    HWY_INLINE bool inside(const NodeMotion& node, int x, int y) const {
        return hn::AllFalse(Lanes(), outside(placesOf(node, x, y), x, y));
    }

  private:
    // x and y in the older source, and x and y in the newer one.
    using Lanes = hn::FixedTag<int32_t, 4>;

    // In pixels. A tile further outside would not lie within the rim.
    static constexpr int kOut = SubpixelPlanes::kRim - 8;

    static HWY_INLINE hn::VFromD<Lanes> pairOf(int x, int y) {
        return hn::OddEven(hn::Set(Lanes(), y), hn::Set(Lanes(), x));
    }
    // The places in quarters of a pixel, not limited to the picture.
    static HWY_INLINE hn::VFromD<Lanes> placesOf(const NodeMotion& node, int x, int y) {
        const Lanes d;
        const hn::Rebind<int16_t, Lanes> half;
        return hn::Add(hn::PromoteTo(d, hn::LoadU(half, &node.olderX)), pairOf(4 * x, 4 * y));
    }
    // Marks the coordinates that lie more than a pixel outside the picture.
    HWY_INLINE hn::Mask<Lanes> outside(hn::VFromD<Lanes> to, int x, int y) const {
        const auto most = pairOf(std::max(4 * x, mLastX) + 4, std::max(4 * y, mLastY) + 4);
        return hn::Or(hn::Lt(to, hn::Set(Lanes(), -4)), hn::Gt(to, most));
    }

    const int mLastX;
    const int mLastY;
};

// Walks over a row of tiles. Calls span(tile, x, y, columns) for as many adjoining tiles as have
// nodes that all move alike, and one(tile, x, y) for each other tile.
template <typename Span, typename One>
HWY_INLINE void forEachTile(const MotionPlan& plan, const PlaceFinder& places, int width, int row,
                            Span span, One one) {
    const int y = row * kNodeStep;
    const int columns = plan.columns() - 1;
    for (int column = 0; column < columns;) {
        // If the width is not a multiple of eight, the last tile overlaps the one before.
        const int x = std::min(column * kNodeStep, width - kNodeStep);
        const Tile tile(plan, column, row);
        if (!tile.alike()) {
            one(tile, x, y);
            ++column;
            continue;
        }
        const NodeMotion& node = *tile.nodes[0];
        int count = 1;
        if (places.inside(node, x, y)) {
            const int most = std::min(columns, width / kNodeStep);
            const auto lanes = lanesOf(node);
            const auto moves = [&](int r) HWY_ATTR {
                return hn::Xor(lanes, lanesOf(plan.at(column + count + 1, r)));
            };
            while (column + count < most && isZero(hn::Or(moves(row), moves(row + 1))))
                ++count;
            while (count > 1 && !places.inside(node, x + (count - 1) * kNodeStep, y))
                --count;
        }
        span(tile, x, y, count);
        column += count;
    }
}

// Converts words below 256 to bytes.
template <class D, class V>
HWY_INLINE hn::VFromD<D> narrow(D bytes, V words) {
    return hn::DemoteTo(bytes, hn::BitCast(hn::RebindToSigned<hn::DFromV<V>>(), words));
}

// The predictions of a tile's four nodes, each for the whole tile. Nodes that move alike share one
// prediction.
class Predictions {
  public:
    // Calls predict(k, to) to write the prediction of node k, once for each different prediction.
    template <class Predict>
    HWY_INLINE Predictions(const Tile& tile, const Predict& predict) {
        for (size_t k = 0; k < 4; ++k) {
            size_t same = 0;
            while (same < k && !tile.same(same, k))
                ++same;
            mOf[k] = mPixels[same];
            if (same == k) predict(k, mPixels[k]);
        }
    }

    // Mixes the first `count` bytes by the distance to the nodes.
    HWY_INLINE void mix(const Shares& shares, size_t count, uint8_t* to) const {
        const hn::CappedTag<uint16_t, 32> d;
        const hn::Rebind<uint8_t, decltype(d)> bytes;
        for (size_t i = 0; i < count; i += hn::Lanes(d)) {
            const auto right = hn::Load(d, shares.right + i);
            // Computes left * 16 + (right - left) * share. The difference may wrap around, but the
            // sum wraps back.
            const auto mean = [&](auto from, auto other, auto share) HWY_ATTR {
                return hn::Add(hn::ShiftLeft<4>(from), hn::Mul(hn::Sub(other, from), share));
            };
            const auto load = [&](size_t k) HWY_ATTR {
                return hn::PromoteTo(d, hn::LoadU(bytes, mOf[k] + i));
            };
            const auto top = mean(load(0), load(1), right);
            const auto bottom = mean(load(2), load(3), right);
            const auto sum = mean(top, bottom, hn::Load(d, shares.below + i));
            hn::StoreU(narrow(bytes, hn::ShiftRight<8>(hn::Add(sum, hn::Set(d, 128)))), bytes,
                       to + i);
        }
    }

  private:
    HWY_ALIGN uint8_t mPixels[4][kTilePixels];
    const uint8_t* mOf[4];
};

// Copies the rows of a tile to their place in the frame.
HWY_INLINE void copyTile(const uint8_t* pixels, uint8_t* to, ptrdiff_t toStride, int rows) {
    for (int row = 0; row < rows; ++row)
        std::memcpy(to + row * toStride, pixels + ptrdiff_t{row} * kNodeStep, kNodeStep);
}

}  // namespace qoz::host::vppservice::HWY_NAMESPACE
HWY_AFTER_NAMESPACE();

#endif  // once for each extension
