// SPDX-License-Identifier: Apache-2.0
// Tiles of 8 x 8 pixels between the nodes of a plan: where their motion leads, how they are walked
// through, and how what four nodes predict is mixed. For files that are compiled once for each
// vector extension.

// Included again for each extension, hence no `#pragma once`.
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

// Quarters of a pixel: nodes further apart move as different things.
constexpr int kApart = 4;

// Pixels of a tile, row after row without gaps. Chroma has half as many rows.
constexpr size_t kTilePixels = size_t{kNodeStep} * kNodeStep;

// For each byte of a tile the shares, of 16, of the right-hand nodes and of the lower ones.
struct Shares {
    HWY_ALIGN uint16_t right[kTilePixels];
    HWY_ALIGN uint16_t below[kTilePixels];
};

// `wide` bytes of a row lie at one place across, `tall` rows between two nodes.
constexpr Shares sharesOf(size_t wide, size_t tall) {
    constexpr size_t kStep = kNodeStep;
    Shares shares{};
    for (size_t i = 0; i < kTilePixels; ++i) {
        shares.right[i] = static_cast<uint16_t>((i % kStep / wide * 2 + 1) * wide);
        shares.below[i] = static_cast<uint16_t>((i / kStep * 2 + 1) * (kStep / tall));
    }
    return shares;
}

// The nodes around a tile: top left, top right, bottom left, bottom right.
struct Tile {
    const NodeMotion* nodes[4];

    HWY_INLINE Tile(const MotionPlan& plan, int column, int row)
        : nodes{&plan.at(column, row), &plan.at(column + 1, row), &plan.at(column, row + 1),
                &plan.at(column + 1, row + 1)} {}

    HWY_INLINE bool alike() const {
        return *nodes[0] == *nodes[1] && *nodes[0] == *nodes[2] && *nodes[0] == *nodes[3];
    }
    HWY_INLINE bool apart() const {
        const auto far = [](const NodeMotion& a, const NodeMotion& b) {
            const int dx = (a.newerX - a.olderX) - (b.newerX - b.olderX);
            const int dy = (a.newerY - a.olderY) - (b.newerY - b.olderY);
            return std::max(std::abs(dx), std::abs(dy)) > kApart;
        };
        return far(*nodes[0], *nodes[3]) || far(*nodes[1], *nodes[2]) || far(*nodes[0], *nodes[1]);
    }
    HWY_INLINE bool sharedAlike() const {
        return nodes[0]->newerShare == nodes[1]->newerShare &&
               nodes[0]->newerShare == nodes[2]->newerShare &&
               nodes[0]->newerShare == nodes[3]->newerShare;
    }
    // Of nodes that are not apart.
    HWY_INLINE NodeMotion mean() const {
        const auto of = [this](int16_t NodeMotion::*part) {
            return static_cast<int16_t>(
                (nodes[0]->*part + nodes[1]->*part + nodes[2]->*part + nodes[3]->*part + 2) >> 2);
        };
        return {of(&NodeMotion::olderX), of(&NodeMotion::olderY), of(&NodeMotion::newerX),
                of(&NodeMotion::newerY), nodes[0]->newerShare};
    }
};

// Where a node's motion leads from a tile in both sources, and the share of the newer one.
struct Places {
    QuarterPlace older;
    QuarterPlace newer;
    int newerShare;  // of kWholeShare
};

// Finds the places of a tile in two sources of one size.
class PlaceFinder {
  public:
    explicit PlaceFinder(const SubpixelPlanes& planes)
        : mLastX(4 * (planes.width() - kNodeStep)), mLastY(4 * (planes.height() - kNodeStep)) {}

    // Where the motion leads out of one source, the other alone is used.
    HWY_INLINE Places of(const NodeMotion& node, int x, int y) const {
        bool inOlder = false, inNewer = false;
        const QuarterPlace older = clamped(x, y, node.olderX, node.olderY, &inOlder);
        const QuarterPlace newer = clamped(x, y, node.newerX, node.newerY, &inNewer);
        return {older, newer, inOlder == inNewer ? node.newerShare : inNewer ? kWholeShare : 0};
    }
    // Whether the motion leads out of neither source.
    HWY_INLINE bool inside(const NodeMotion& node, int x, int y) const {
        bool inOlder = false, inNewer = false;
        clamped(x, y, node.olderX, node.olderY, &inOlder);
        clamped(x, y, node.newerX, node.newerY, &inNewer);
        return inOlder && inNewer;
    }

  private:
    // Further out than this there is no rim to read.
    static constexpr int kOut = SubpixelPlanes::kRim - 8;

    // All of a place lies well within the rim for a tile.
    HWY_INLINE QuarterPlace clamped(int x, int y, int dx, int dy, bool* inside) const {
        const int toX = 4 * x + dx;
        const int toY = 4 * y + dy;
        *inside = toX >= -4 && toY >= -4 && toX <= std::max(4 * x, mLastX) + 4 &&
                  toY <= std::max(4 * y, mLastY) + 4;
        return {std::clamp(toX, -4 * kOut, mLastX + 4 * kOut),
                std::clamp(toY, -4 * kOut, mLastY + 4 * kOut)};
    }

    const int mLastX;
    const int mLastY;
};

// Calls span(tile, x, y, columns) for tiles alike, as many in a row as there are, and one(tile, x,
// y) for the others.
template <typename Span, typename One>
HWY_INLINE void forEachTile(const MotionPlan& plan, const PlaceFinder& places, int width, int row,
                            Span span, One one) {
    const int y = row * kNodeStep;
    const int columns = plan.columns() - 1;
    for (int column = 0; column < columns;) {
        // The last tile of a row that eight does not divide overlaps the one before.
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
            while (column + count < most && plan.at(column + count + 1, row) == node &&
                   plan.at(column + count + 1, row + 1) == node) {
                ++count;
            }
            while (count > 1 && !places.inside(node, x + (count - 1) * kNodeStep, y))
                --count;
        }
        span(tile, x, y, count);
        column += count;
    }
}

// Words below 256 as bytes.
template <class D, class V>
HWY_INLINE hn::VFromD<D> narrow(D bytes, V words) {
    return hn::DemoteTo(bytes, hn::BitCast(hn::RebindToSigned<hn::DFromV<V>>(), words));
}

// What each of a tile's nodes predicts for all of it. Nodes that move alike share one prediction.
class Predictions {
  public:
    // predict(k, to) writes what node k predicts.
    template <class Predict>
    HWY_INLINE Predictions(const Tile& tile, const Predict& predict) {
        for (size_t k = 0; k < 4; ++k) {
            size_t same = 0;
            while (same < k && *tile.nodes[same] != *tile.nodes[k])
                ++same;
            mOf[k] = mPixels[same];
            if (same == k) predict(k, mPixels[k]);
        }
    }

    // Mixes the first `count` bytes by distance.
    HWY_INLINE void mix(const Shares& shares, size_t count, uint8_t* to) const {
        const hn::CappedTag<uint16_t, 32> d;
        const hn::Rebind<uint8_t, decltype(d)> bytes;
        for (size_t i = 0; i < count; i += hn::Lanes(d)) {
            const auto right = hn::Load(d, shares.right + i);
            // left * 16 + (right - left) * share; differences wrap around and back.
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

// Rows of eight bytes to where they belong.
HWY_INLINE void copyTile(const uint8_t* pixels, uint8_t* to, ptrdiff_t toStride, int rows) {
    for (int row = 0; row < rows; ++row)
        std::memcpy(to + row * toStride, pixels + ptrdiff_t{row} * kNodeStep, kNodeStep);
}

}  // namespace qoz::host::vppservice::HWY_NAMESPACE
HWY_AFTER_NAMESPACE();

#endif  // once for each extension
