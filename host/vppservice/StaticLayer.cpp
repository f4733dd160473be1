// SPDX-License-Identifier: Apache-2.0
#include "host/vppservice/StaticLayer.h"

#include <algorithm>
#include <cstdlib>
#include <cstring>

#undef HWY_TARGET_INCLUDE
#define HWY_TARGET_INCLUDE "host/vppservice/StaticLayer.cpp"
#include <hwy/foreach_target.h>  // compiles the rest of this file for each target
#include <hwy/highway.h>
// These follow it because they are compiled for each target too.
#include "host/vppservice/Window-inl.h"

#ifndef QOZ_HOST_VPPSERVICE_STATIC_LAYER_ONCE
#define QOZ_HOST_VPPSERVICE_STATIC_LAYER_ONCE
namespace qoz::host::vppservice {

// The arguments of the kernel.
struct StaticLayer::Search {
    const SubpixelPlanes& older;
    const SubpixelPlanes& newer;
    const MotionPlan& plan;
    int columns;  // number of tiles in a row
    TileRows rows;
    uint8_t* suspects;  // is set to 255 for each suspect; all 0 before
    ptrdiff_t stride;
    uint8_t* tiles;  // is set to 1 for each tile with a suspect
};

}  // namespace qoz::host::vppservice
#endif

HWY_BEFORE_NAMESPACE();
namespace qoz::host::vppservice::HWY_NAMESPACE {
namespace {

// In grey levels: the largest change of a pixel that stands still, and the smallest difference from
// the pixels that the motion predicts.
constexpr uint8_t kStill = 6;
constexpr uint8_t kUnlike = 24;

// Rows of pixels in both sources, at the same place and displaced by the motion. The motion would
// bring the pixels of `olderMoved` to the place of `newer`, and those of `older` to the place of
// `newerMoved`.
struct StillRows {
    const uint8_t* older;
    const uint8_t* newer;
    const uint8_t* olderMoved;
    const uint8_t* newerMoved;
};

// Marks the suspects of as many tiles as a vector holds, with kNodeStep rows each: pixels that are
// the same in both sources and that the motion explains in neither. Notes the tiles that have
// suspects. Returns whether any has.
template <class D>
HWY_INLINE bool markStill(D d, const StillRows& rows, ptrdiff_t stride, uint8_t* mask,
                          ptrdiff_t maskStride, uint8_t* tiles) {
    hn::VFromD<D> marks[kNodeStep];
    auto any = hn::Zero(d);
    for (ptrdiff_t row = 0; row < kNodeStep; ++row) {
        const auto load = [=](const uint8_t* p) HWY_ATTR { return hn::LoadU(d, p + row * stride); };
        const auto older = load(rows.older);
        const auto newer = load(rows.newer);
        const auto change = absoluteDifference(older, newer);
        const auto moved = hn::Min(absoluteDifference(older, load(rows.newerMoved)),
                                   absoluteDifference(newer, load(rows.olderMoved)));
        const auto still = hn::Eq(hn::Min(change, hn::Set(d, kStill)), change);
        const auto unlike = hn::Eq(hn::Max(moved, hn::Set(d, kUnlike)), moved);
        marks[row] = hn::VecFromMask(d, hn::And(still, unlike));
        any = hn::Or(any, marks[row]);
    }
    if (hn::AllTrue(d, hn::Eq(any, hn::Zero(d)))) return false;
    for (const auto& row : marks) {
        hn::StoreU(row, d, mask);
        mask += maskStride;
    }
    HWY_ALIGN uint64_t found[hn::MaxLanes(d) / kNodeStep];
    hn::Store(hn::BitCast(hn::Repartition<uint64_t, D>(), any), hn::Repartition<uint64_t, D>(),
              found);
    for (size_t tile = 0; tile < hn::Lanes(d) / kNodeStep; ++tile)
        tiles[tile] = found[tile] != 0 ? 1 : 0;
    return true;
}

// Finds suspects in the tiles of a range of rows. Adjoining tiles that move alike are processed
// together.
class Suspects {
  public:
    explicit Suspects(const StaticLayer::Search& search)
        : mSearch(search), mWidth(search.newer.width()), mHeight(search.newer.height()) {}

    HWY_INLINE bool findAll() {
        for (int row = mSearch.rows.first; row < mSearch.rows.end; ++row) {
            for (int column = 0; column < mSearch.columns;)
                column += findFrom(column, row);
        }
        return mAny;
    }

  private:
    // A motion in whole pixels. A step of 0 means that the tile moves too little to tell the layer
    // from the picture.
    struct Step {
        int dx = 0;
        int dy = 0;

        bool operator==(const Step&) const = default;
    };

    // Returns the longest of the vectors of the four nodes around a tile.
    HWY_INLINE Step stepOf(int column, int row) const {
        const auto length = [](const Vector& v) { return std::abs(v.dx) + std::abs(v.dy); };
        const Vector* upper = &mSearch.plan.vector(column, row);
        const Vector* lower = &mSearch.plan.vector(column, row + 1);
        Vector most = upper[0];
        for (const Vector& other : {upper[1], lower[0], lower[1]}) {
            if (length(other) > length(most)) most = other;
        }
        if (distance(most, {}) < kMotionUnit) return {};
        const auto whole = [](int eighths) { return (eighths + kMotionUnit / 2) >> 3; };
        return {whole(most.dx), whole(most.dy)};
    }

    // Searches the tiles from this one on that move alike. Returns the number of tiles that are
    // finished.
    HWY_INLINE int findFrom(int column, int row) {
        const Step step = stepOf(column, row);
        if (step == Step{}) return 1;
        int end = column + 1;
        // If the width is not a multiple of eight, the last tile of a row overlaps the one before.
        const int whole = mWidth / kNodeStep;
        while (end < whole && stepOf(end, row) == step)
            ++end;
        const int dx = step.dx, dy = step.dy;
        const int y = std::min(row * kNodeStep, mHeight - kNodeStep);
        if (std::min(y - dy, y + dy) < 0 || std::max(y - dy, y + dy) + kNodeStep > mHeight)
            return end - column;
        const auto leaves = [&](int tile) {
            const int x = xOf(tile);
            return std::min(x - dx, x + dx) < 0 || std::max(x - dx, x + dx) + kNodeStep > mWidth;
        };
        int first = column;
        int last = end;
        while (first < last && leaves(first))
            ++first;
        while (first < last && leaves(last - 1))
            --last;
        first = findBy(hn::ScalableTag<uint8_t>(), first, last, y, row, step);
        first = findBy(hn::CappedTag<uint8_t, 16>(), first, last, y, row, step);
        findBy(hn::FixedTag<uint8_t, kNodeStep>(), first, last, y, row, step);
        return end - column;
    }

    // Searches tiles as long as they fill a whole vector. Returns the first tile that is left.
    template <class D>
    HWY_INLINE int findBy(D d, int first, int last, int y, int row, Step step) {
        const auto tiles = static_cast<int>(hn::Lanes(d)) / kNodeStep;
        const ptrdiff_t stride = mSearch.newer.stride();
        for (; first + tiles <= last; first += tiles) {
            const int x = xOf(first);
            const StillRows rows = {mSearch.older.pixel(x, y), mSearch.newer.pixel(x, y),
                                    mSearch.older.pixel(x - step.dx, y - step.dy),
                                    mSearch.newer.pixel(x + step.dx, y + step.dy)};
            mAny |=
                markStill(d, rows, stride, mSearch.suspects + y * mSearch.stride + x,
                          mSearch.stride, mSearch.tiles + ptrdiff_t{row} * mSearch.columns + first);
        }
        return first;
    }

    // The first pixel of a tile in its row.
    HWY_INLINE int xOf(int column) const {
        return std::min(column * kNodeStep, mWidth - kNodeStep);
    }

    const StaticLayer::Search& mSearch;
    const int mWidth;
    const int mHeight;
    bool mAny = false;
};

bool Suspect(const StaticLayer::Search& search) {
    return Suspects(search).findAll();
}

}  // namespace
}  // namespace qoz::host::vppservice::HWY_NAMESPACE
HWY_AFTER_NAMESPACE();

#if HWY_ONCE
namespace qoz::host::vppservice {
namespace {

HWY_EXPORT(Suspect);

// The number of the eight neighbours that must be suspects too. A pixel within a line has that
// many; the end of a line has one, and a speck none.
constexpr int kSupport = 2;

// Rounds quarters of a pixel to whole pixels.
int wholePixels(int quarters) {
    return (quarters + 2) >> 2;
}

// Mixes the two sources by the share of the newer one.
uint8_t mixed(int older, int newer, int newerShare) {
    return static_cast<uint8_t>(
        (older * (kWholeShare - newerShare) + newer * newerShare + kWholeShare / 2) / kWholeShare);
}

}  // namespace

void StaticLayer::begin(FrameSize size) {
    const auto width = static_cast<int>(size.width);
    const auto height = static_cast<int>(size.height);
    if (width != mWidth || height != mHeight) {
        resize(width, height);
    } else if (mSuspected) {
        forget();
    }
    std::fill(mTiles.begin(), mTiles.end(), uint8_t{0});
    mSuspected = false;
    mAny = false;
}

void StaticLayer::suspect(const SubpixelPlanes& older, const SubpixelPlanes& newer,
                          const MotionPlan& plan, TileRows tiles) {
    mSuspected |= HWY_DYNAMIC_DISPATCH(Suspect)({.older = older,
                                                 .newer = newer,
                                                 .plan = plan,
                                                 .columns = mColumns,
                                                 .rows = tiles,
                                                 .suspects = at(mSuspects, 0, 0),
                                                 .stride = mStride,
                                                 .tiles = mTiles.data()});
}

void StaticLayer::confirmAll() {
    mSuspectTiles = mTiles;
    std::fill(mAround.begin(), mAround.end(), uint8_t{0});
    for (int row = 0; row < mRows; ++row) {
        for (int column = 0; column < mColumns; ++column) {
            if (mTiles[tileAt(column, row)] != 0) confirm(column, row);
        }
    }
}

// The new size is set last: if an allocation fails before that, the next call starts again.
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
    mAround.resize(mTiles.size());
    mWidth = width;
    mHeight = height;
}

// Only tiles with suspects can have marks.
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

// A suspect belongs to the layer if at least kSupport of its neighbours are suspects.
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
    if (!any) return;
    mAny = true;
    for (int down = std::max(row - 1, 0); down <= std::min(row + 1, mRows - 1); ++down) {
        for (int across = std::max(column - 1, 0); across <= std::min(column + 1, mColumns - 1);
             ++across) {
            mAround[tileAt(across, down)] = 1;
        }
    }
}

// Returns whether a tile with pixels of the layer is touched by the 8 x 8 pixels from (x, y) or by
// the pixels next to them.
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

// Returns whether the pixel or one of its four neighbours belongs to the layer. The neighbours
// count because a place between pixels is computed from the pixels around it.
bool StaticLayer::near(int x, int y) const {
    if (x < 0 || y < 0 || x >= mWidth || y >= mHeight) return false;
    const uint8_t* here = at(x, y);
    return (here[0] | here[1] | here[-1] | here[mStride] | here[-mStride]) != 0;
}

// Most frames have no static layer and are finished after the first two tests. Tiles that move are
// corrected first; then the layer's own pixels are written over them.
void StaticLayer::restore(const SubpixelPlanes& older, const SubpixelPlanes& newer,
                          const MotionPlan& plan, const Nv12Canvas& to) {
    if (mSuspected) confirmAll();
    if (!mAny) return;
    for (int row = 0; row < mRows; ++row) {
        for (int column = 0; column < mColumns; ++column) {
            const NodeMotion& node = plan.at(column, row);
            if (node.acrossX == 0 && node.acrossY == 0) continue;
            // A quick test: the motion of most tiles does not lead near the layer.
            const auto leadsNear = [&](int dx, int dy) {
                const auto tile = [](int pixel, int tiles) {
                    return std::clamp(pixel >> 3, 0, tiles - 1);
                };
                const int x = column * kNodeStep + wholePixels(dx);
                const int y = row * kNodeStep + wholePixels(dy);
                return mAround[tileAt(tile(x, mColumns), tile(y, mRows))] != 0;
            };
            if (leadsNear(node.olderX, node.olderY) || leadsNear(node.newerX, node.newerY))
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

// If the motion leads behind the layer in one source only, the pixel is read from the other source.
void StaticLayer::uncover(const SubpixelPlanes& older, const SubpixelPlanes& newer,
                          const NodeMotion& node, int column, int row, const Nv12Canvas& to) const {
    const int x = column * kNodeStep;
    const int y = row * kNodeStep;
    const int olderX = wholePixels(node.olderX), olderY = wholePixels(node.olderY);
    const int newerX = wholePixels(node.newerX), newerY = wholePixels(node.newerY);
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

// The pixels of both sources are blended by time, which also follows a change of brightness.
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
