// SPDX-License-Identifier: Apache-2.0
#include "host/vppservice/StaticLayer.h"

#include <algorithm>
#include <cstdlib>
#include <cstring>

#undef HWY_TARGET_INCLUDE
#define HWY_TARGET_INCLUDE "host/vppservice/StaticLayer.cpp"
#include <hwy/foreach_target.h>  // compiles what follows once for each target
#include <hwy/highway.h>
// After it, as it is compiled once for each target too.
#include "host/vppservice/Window-inl.h"

#ifndef QOZ_HOST_VPPSERVICE_STATIC_LAYER_ONCE
#define QOZ_HOST_VPPSERVICE_STATIC_LAYER_ONCE
namespace qoz::host::vppservice {

// Where suspects are looked for, and where they are noted.
struct StaticLayer::Search {
    const SubpixelPlanes& older;
    const SubpixelPlanes& newer;
    const MotionPlan& plan;
    int columns;  // tiles
    int rows;
    uint8_t* suspects;  // 0 or 255 for each pixel, all 0 before
    ptrdiff_t stride;
    uint8_t* tiles;  // 1: there is one
};

}  // namespace qoz::host::vppservice
#endif

HWY_BEFORE_NAMESPACE();
namespace qoz::host::vppservice::HWY_NAMESPACE {
namespace {

// Grey levels by which a pixel may change that stands still, and by which it must differ from what
// moves.
constexpr uint8_t kStill = 6;
constexpr uint8_t kUnlike = 24;

// Eight by eight pixels of both sources: where they are, and where the motion around leads from the
// other source: `olderMoved` shows what would be at `newer`, and the other way round.
struct StillTile {
    const uint8_t* older;
    const uint8_t* newer;
    const uint8_t* olderMoved;
    const uint8_t* newerMoved;
};

// Marks with 255 what is the same in both sources and what the motion explains in neither; says
// whether there is any. Two rows at a time.
HWY_INLINE bool markStill(const StillTile& tile, ptrdiff_t stride, uint8_t* mask,
                          ptrdiff_t maskStride) {
    const hn::FixedTag<uint8_t, 16> d;
    const hn::FixedTag<uint8_t, 8> half;
    hn::VFromD<decltype(d)> marks[kNodeStep / 2];
    auto any = hn::Zero(d);
    for (ptrdiff_t row = 0; row < kNodeStep; row += 2) {
        const auto load = [=](const uint8_t* p) HWY_ATTR {
            p += row * stride;
            return hn::Combine(d, hn::LoadU(half, p + stride), hn::LoadU(half, p));
        };
        const auto older = load(tile.older);
        const auto newer = load(tile.newer);
        const auto change = apart(older, newer);
        const auto moved =
            hn::Min(apart(older, load(tile.newerMoved)), apart(newer, load(tile.olderMoved)));
        const auto still = hn::Eq(hn::Min(change, hn::Set(d, kStill)), change);
        const auto unlike = hn::Eq(hn::Max(moved, hn::Set(d, kUnlike)), moved);
        marks[row / 2] = hn::VecFromMask(d, hn::And(still, unlike));
        any = hn::Or(any, marks[row / 2]);
    }
    if (hn::AllTrue(d, hn::Eq(any, hn::Zero(d)))) return false;
    for (const auto& two : marks) {
        hn::StoreU(hn::LowerHalf(half, two), half, mask);
        hn::StoreU(hn::UpperHalf(half, two), half, mask + maskStride);
        mask += 2 * maskStride;
    }
    return true;
}

// The motion of the four nodes around a tile that leads furthest.
HWY_INLINE Vector fastest(const MotionPlan& plan, int column, int row) {
    const auto length = [](const Vector& v) { return std::abs(v.dx) + std::abs(v.dy); };
    Vector most = plan.vector(column, row);
    for (const Vector& other : {plan.vector(column + 1, row), plan.vector(column, row + 1),
                                plan.vector(column + 1, row + 1)}) {
        if (length(other) > length(most)) most = other;
    }
    return most;
}

bool Suspect(const StaticLayer::Search& search) {
    const int width = search.newer.width();
    const int height = search.newer.height();
    const auto whole = [](int eighths) { return (eighths + kMotionUnit / 2) >> 3; };
    bool any = false;
    for (int row = 0; row < search.rows; ++row) {
        for (int column = 0; column < search.columns; ++column) {
            const Vector vector = fastest(search.plan, column, row);
            if (distance(vector, {}) < kMotionUnit) continue;
            const int x = std::min(column * kNodeStep, width - kNodeStep);
            const int y = std::min(row * kNodeStep, height - kNodeStep);
            const int dx = whole(vector.dx);
            const int dy = whole(vector.dy);
            const auto inside = [&](int atX, int atY) {
                return atX >= 0 && atY >= 0 && atX + kNodeStep <= width &&
                       atY + kNodeStep <= height;
            };
            if (!inside(x + dx, y + dy) || !inside(x - dx, y - dy)) continue;
            const StillTile tile = {search.older.pixel(x, y), search.newer.pixel(x, y),
                                    search.older.pixel(x - dx, y - dy),
                                    search.newer.pixel(x + dx, y + dy)};
            uint8_t* mask = search.suspects + y * search.stride + x;
            if (!markStill(tile, search.newer.stride(), mask, search.stride)) continue;
            search.tiles[row * search.columns + column] = 1;
            any = true;
        }
    }
    return any;
}

}  // namespace
}  // namespace qoz::host::vppservice::HWY_NAMESPACE
HWY_AFTER_NAMESPACE();

#if HWY_ONCE
namespace qoz::host::vppservice {
namespace {

HWY_EXPORT(Suspect);

// Neighbours, of eight, that are suspected too: an end of a line has one, a speck none.
constexpr int kSupport = 2;

uint8_t mixed(int older, int newer, int newerShare) {
    return static_cast<uint8_t>(
        (older * (kWholeShare - newerShare) + newer * newerShare + kWholeShare / 2) / kWholeShare);
}

}  // namespace

void StaticLayer::find(const SubpixelPlanes& older, const SubpixelPlanes& newer,
                       const MotionPlan& plan) {
    if (newer.width() != mWidth || newer.height() != mHeight) {
        resize(newer.width(), newer.height());
    } else if (mSuspected) {
        forget();
    }
    std::fill(mTiles.begin(), mTiles.end(), uint8_t{0});
    mAny = false;
    mSuspected = HWY_DYNAMIC_DISPATCH(Suspect)({.older = older,
                                                .newer = newer,
                                                .plan = plan,
                                                .columns = mColumns,
                                                .rows = mRows,
                                                .suspects = at(mSuspects, 0, 0),
                                                .stride = mStride,
                                                .tiles = mTiles.data()});
    if (!mSuspected) return;
    mSuspectTiles = mTiles;
    for (int row = 0; row < mRows; ++row) {
        for (int column = 0; column < mColumns; ++column) {
            if (mTiles[tileAt(column, row)] != 0) confirm(column, row);
        }
    }
}

// The size counts only once all masks have it: memory may run out in between.
void StaticLayer::resize(int width, int height) {
    mWidth = mHeight = 0;
    mSuspected = false;
    mStride = width + 2 * kRim + kNodeStep;
    mColumns = (width + kNodeStep - 1) / kNodeStep;
    mRows = (height + kNodeStep - 1) / kNodeStep;
    const auto bytes =
        static_cast<size_t>(mStride) * static_cast<size_t>(height + 2 * kRim + kNodeStep);
    mSuspects.assign(bytes, 0);
    mMask.assign(bytes, 0);
    mTiles.resize(static_cast<size_t>(mColumns) * static_cast<size_t>(mRows));
    mSuspectTiles.resize(mTiles.size());
    mWidth = width;
    mHeight = height;
}

// Wipes what the last frame has left, where it has.
void StaticLayer::forget() {
    for (int row = 0; row < mRows; ++row) {
        for (int column = 0; column < mColumns; ++column) {
            if (mSuspectTiles[tileAt(column, row)] == 0) continue;
            const int x = std::min(column * kNodeStep, mWidth - kNodeStep);
            const int y = std::min(row * kNodeStep, mHeight - kNodeStep);
            for (int down = 0; down < kNodeStep; ++down) {
                std::memset(at(mSuspects, x, y + down), 0, kNodeStep);
                std::memset(at(mMask, x, y + down), 0, kNodeStep);
            }
        }
    }
}

void StaticLayer::confirm(int column, int row) {
    bool any = false;
    const int right = std::min((column + 1) * kNodeStep, mWidth);
    const int bottom = std::min((row + 1) * kNodeStep, mHeight);
    for (int y = row * kNodeStep; y < bottom; ++y) {
        const uint8_t* here = at(mSuspects, 0, y);
        uint8_t* mask = at(mMask, 0, y);
        for (int x = column * kNodeStep; x < right; ++x) {
            if (here[x] == 0) continue;
            int support = -1;
            for (int down = -1; down <= 1; ++down) {
                const uint8_t* beside = here + ptrdiff_t{down} * mStride + x;
                support += (beside[-1] & 1) + (beside[0] & 1) + (beside[1] & 1);
            }
            if (support < kSupport) continue;
            mask[x] = 255;
            any = true;
        }
    }
    mTiles[tileAt(column, row)] = any ? 1 : 0;
    mAny = mAny || any;
}

// Whether any tile that the eight pixels from (x, y), both ways, or the pixels beside these lie in
// has some of the mask.
bool StaticLayer::touches(int x, int y) const {
    const auto tile = [](int pixel, int last) { return std::clamp(pixel >> 3, 0, last); };
    const int left = tile(x - 1, mColumns - 1), right = tile(x + kNodeStep, mColumns - 1);
    const int top = tile(y - 1, mRows - 1), bottom = tile(y + kNodeStep, mRows - 1);
    for (int row = top; row <= bottom; ++row) {
        for (int column = left; column <= right; ++column) {
            if (mTiles[tileAt(column, row)] != 0) return true;
        }
    }
    return false;
}

// A pixel beside the mask shows some of it, read between pixels.
bool StaticLayer::near(int x, int y) const {
    if (x < 0 || y < 0 || x >= mWidth || y >= mHeight) return false;
    const uint8_t* here = at(x, y);
    return (here[0] | here[1] | here[-1] | here[mStride] | here[-mStride]) != 0;
}

void StaticLayer::restore(const SubpixelPlanes& older, const SubpixelPlanes& newer,
                          const MotionPlan& plan, const Nv12Canvas& to) const {
    if (!mAny) return;
    for (int row = 0; row < mRows; ++row) {
        for (int column = 0; column < mColumns; ++column) {
            const NodeMotion& node = plan.at(column, row);
            if (node.newerX == node.olderX && node.newerY == node.olderY) continue;
            uncover(older, newer, node, column, row, to);
        }
    }
    const int share = plan.shareByTime();
    for (int row = 0; row < mRows; ++row) {
        for (int column = 0; column < mColumns; ++column) {
            if (mTiles[tileAt(column, row)] != 0) {
                paste(older, newer, share, column, row, to);
            }
        }
    }
}

void StaticLayer::uncover(const SubpixelPlanes& older, const SubpixelPlanes& newer,
                          const NodeMotion& node, int column, int row, const Nv12Canvas& to) const {
    const int x = column * kNodeStep;
    const int y = row * kNodeStep;
    const int olderX = (node.olderX + 2) >> 2, olderY = (node.olderY + 2) >> 2;
    const int newerX = (node.newerX + 2) >> 2, newerY = (node.newerY + 2) >> 2;
    const bool covers = touches(x + olderX, y + olderY) || touches(x + newerX, y + newerY);
    const auto inside = [&](int dx, int dy) {
        return x + dx >= 0 && y + dy >= 0 && x + dx + kNodeStep < mWidth &&
               y + dy + kNodeStep < mHeight;
    };
    if (!covers || !inside(olderX, olderY) || !inside(newerX, newerY)) return;
    const PixelPair fromOlder = older.at({4 * x + node.olderX, 4 * y + node.olderY});
    const PixelPair fromNewer = newer.at({4 * x + node.newerX, 4 * y + node.newerY});
    for (int j = 0; j < std::min(kNodeStep, mHeight - y); ++j) {
        uint8_t* out = to.luma + static_cast<ptrdiff_t>(y + j) * static_cast<ptrdiff_t>(to.stride);
        for (int i = 0; i < std::min(kNodeStep, mWidth - x); ++i) {
            const bool hidden = near(x + i + olderX, y + j + olderY);
            if (hidden == near(x + i + newerX, y + j + newerY)) continue;
            const PixelPair& seen = hidden ? fromNewer : fromOlder;
            const ptrdiff_t at = j * newer.stride() + i;
            out[x + i] = static_cast<uint8_t>((seen.first[at] + seen.second[at] + 1) / 2);
        }
    }
}

void StaticLayer::paste(const SubpixelPlanes& older, const SubpixelPlanes& newer, int share,
                        int column, int row, const Nv12Canvas& to) const {
    const int right = std::min((column + 1) * kNodeStep, mWidth);
    const int bottom = std::min((row + 1) * kNodeStep, mHeight);
    const auto stride = static_cast<ptrdiff_t>(to.stride);
    for (int y = row * kNodeStep; y < bottom; ++y) {
        for (int x = column * kNodeStep; x < right; ++x) {
            if (*at(x, y) == 0) continue;
            to.luma[y * stride + x] = mixed(*older.pixel(x, y), *newer.pixel(x, y), share);
            const uint8_t* before = older.chroma(x / 2, y / 2);
            const uint8_t* after = newer.chroma(x / 2, y / 2);
            uint8_t* chroma = to.chroma + ptrdiff_t{y / 2} * stride + ptrdiff_t{x / 2} * 2;
            chroma[0] = mixed(before[0], after[0], share);
            chroma[1] = mixed(before[1], after[1], share);
        }
    }
}

}  // namespace qoz::host::vppservice
#endif
