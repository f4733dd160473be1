// SPDX-License-Identifier: Apache-2.0
#include <host/converter/BlockSearch.h>
#include <host/converter/MotionField.h>

#include <algorithm>
#include <cstdlib>

#undef HWY_TARGET_INCLUDE
#define HWY_TARGET_INCLUDE "host/converter/BlockSearch.cpp"
#include <hwy/foreach_target.h>  // compiles what follows once for each target
// After it, as it is compiled once for each target too.
#include <host/converter/BlockKernels-inl.h>
#include <hwy/highway.h>

#ifndef QOZ_HOST_CONVERTER_BLOCK_SEARCH_ONCE
#define QOZ_HOST_CONVERTER_BLOCK_SEARCH_ONCE
namespace qoz::host {
namespace {

// Rounds of steps each way.
constexpr int kRefinements = 2;

// What the search of one level goes by.
struct Level {
    const LumaPlane& from;
    const LumaPlane& to;
    int reach;
    int coarseShift;     // from a column or row of this grid to that of the coarser one
    int refinements;     // rounds of single steps, each way
    bool searchesAlone;  // blocks that no prediction explains are searched for
};

}  // namespace
}  // namespace qoz::host
#endif

HWY_BEFORE_NAMESPACE();
namespace qoz::host::HWY_NAMESPACE {
namespace {

// With less than this per pixel left, a neighbour's displacement or none is taken without a search.
constexpr uint32_t kPlausible = 2;

// One level below, a block may be small enough to move on its own within a larger one that does
// not. When no prediction leaves less than this per pixel, it is searched for this far around.
constexpr uint32_t kUnexplained = 6;
constexpr int kOwnReach = 6;

// A step away from the prediction must pay for itself, up to a distance: 1/8 grey level a pixel,
// one at most. Blocks without texture so follow their surroundings instead of the noise.
constexpr int kBiasedDistance = 8;
constexpr uint32_t kBiasShare = 8;

// A mean difference of one grey level is as good as none.
constexpr uint32_t kSettled = 1;

// A whole block of 8x8 pixels, to be compared with many others.
class BlockOf8 {
  public:
    static constexpr int kSize = 8;

    HWY_INLINE BlockOf8(const uint8_t* pixels, ptrdiff_t stride)
        : mRows{pairOf(pixels, 0, stride), pairOf(pixels, 1, stride), pairOf(pixels, 2, stride),
                pairOf(pixels, 3, stride)} {}

    HWY_INLINE uint32_t difference(const uint8_t* other, ptrdiff_t stride) const {
        auto sum = hn::Zero(Sums2());
        for (int i = 0; i < 4; ++i)
            sum = hn::Add(sum, sumsOfDifferences(mRows[i], pairOf(other, i, stride)));
        return total(sum);
    }

  private:
    using Rows = hn::VFromD<Bytes16>;

    static HWY_INLINE Rows pairOf(const uint8_t* pixels, ptrdiff_t pair, ptrdiff_t stride) {
        return twoRowsOf8(pixels + 2 * pair * stride, stride);
    }

    Rows mRows[4];
};

// One block's candidates and the best of them.
class Candidates {
  public:
    HWY_INLINE Candidates(const LumaPlane& from, const LumaPlane& to, const Block& block,
                          Displacement predicted, int reach)
        : mFrom(from), mTo(to), mBlock(block), mPredicted(predicted), mReach(reach) {}

    // Each displacement is compared once; none, once one fits.
    HWY_INLINE void offer(Displacement candidate) {
        if (settled()) return;
        for (int i = 0; i < mOffered; ++i) {
            if (mKnown[i] == candidate) return;
        }
        if (mOffered < kMostKnown) mKnown[mOffered++] = candidate;
        compare(candidate);
    }

    // Every displacement within `reach` of none, unless a good one is known.
    void offerAround(int reach) {
        if (settled()) return;
        for (int dy = -reach; dy <= reach; ++dy) {
            if (mBlock.size == BlockOf8::kSize) {
                offerRowOf8(reach, dy);
            } else {
                offerRow(-reach, reach, dy);
            }
        }
    }

    // Steps of so many pixels from the best, for as long as they help.
    HWY_INLINE void refine(int rounds, int step = 1) {
        constexpr Displacement kSteps[] = {{0, -1}, {-1, 0}, {1, 0}, {0, 1}};
        for (int round = 0; round < rounds && !settled(); ++round) {
            const Displacement centre = mBest.displacement;
            for (const auto& [dx, dy] : kSteps)
                compare({centre.dx + dx * step, centre.dy + dy * step});
            if (mBest.displacement == centre) return;
        }
    }

    bool plausible() const { return mBest.difference < kPlausible * mBlock.area(); }
    bool explained() const { return mBest.difference < kUnexplained * mBlock.area(); }
    const BlockMatch& best() const { return mBest; }

  private:
    static constexpr int kMostKnown = 8;

    bool settled() const { return mBest.difference < mBlock.area() * kSettled; }

    HWY_INLINE void compare(Displacement candidate) {
        if (std::abs(candidate.dx) > mReach || std::abs(candidate.dy) > mReach) return;
        const uint32_t dearer = bias(candidate);
        if (dearer >= mCost) return;
        const uint32_t difference = blockDifference(mFrom, mTo, mBlock, candidate, mCost - dearer);
        if (difference != kUnseen) take(candidate, dearer, difference);
    }

    void offerRow(int first, int last, int dy) {
        for (int dx = first; dx <= last; ++dx)
            compare({dx, dy});
    }

    HWY_INLINE void offerRowOf8(int reach, int dy) {
        const int y = mBlock.y + dy;
        if (y < 0 || y + BlockOf8::kSize > mTo.height) return offerRow(-reach, reach, dy);
        const int left = std::max(-reach, -mBlock.x);
        const int right = std::min(reach, mTo.width - BlockOf8::kSize - mBlock.x);
        const BlockOf8 block(mFrom.at(mBlock.x, mBlock.y), mFrom.width);
        const uint8_t* other = mTo.at(mBlock.x + left, y);
        offerRow(-reach, left - 1, dy);
        for (int dx = left; dx <= right; ++dx, ++other)
            take({dx, dy}, bias({dx, dy}), block.difference(other, mTo.width));
        offerRow(right + 1, reach, dy);
    }

    HWY_INLINE void take(Displacement candidate, uint32_t dearer, uint32_t difference) {
        const uint32_t cost = difference + dearer;
        if (cost >= mCost) return;
        mBest = {candidate, difference};
        mCost = cost;
    }

    uint32_t bias(Displacement candidate) const {
        const int distance =
            std::abs(candidate.dx - mPredicted.dx) + std::abs(candidate.dy - mPredicted.dy);
        return static_cast<uint32_t>(std::min(distance, kBiasedDistance)) * mBlock.area() /
               kBiasShare;
    }

    const LumaPlane& mFrom;
    const LumaPlane& mTo;
    Block mBlock;
    Displacement mPredicted;
    int mReach;

    Displacement mKnown[kMostKnown];
    int mOffered = 0;
    BlockMatch mBest;
    uint32_t mCost = kUnseen;
};

Displacement doubled(Displacement coarse) {
    return {coarse.dx * 2, coarse.dy * 2};
}

// The blocks of the same level that are done already: most blocks move as one of them does, and
// then need no search of their own.
HWY_INLINE void offerNeighbours(const BlockGrid& grid, int column, int row,
                                Candidates* candidates) {
    constexpr int kDone[][2] = {{-1, 0}, {0, -1}, {1, -1}};
    for (const auto& [right, down] : kDone) {
        if (!grid.has(column + right, row + down)) continue;
        candidates->offer(grid.at(column + right, row + down).displacement);
    }
}

void SearchCoarsest(const LumaPlane& from, const LumaPlane& to, int reach, BlockGrid* grid) {
    for (int row = 0; row < grid->rows(); ++row) {
        for (int column = 0; column < grid->columns(); ++column) {
            Candidates candidates(from, to, grid->block(column, row), {}, reach);
            candidates.offer({});
            offerNeighbours(*grid, column, row, &candidates);
            if (!candidates.plausible()) candidates.offerAround(reach);
            candidates.refine(kRefinements);
            grid->at(column, row) = candidates.best();
        }
    }
}

void SearchLevel(const Level& level, const BlockGrid& coarse, BlockGrid* grid) {
    for (int row = 0; row < grid->rows(); ++row) {
        for (int column = 0; column < grid->columns(); ++column) {
            const BlockMatch& larger =
                coarse.at(column >> level.coarseShift, row >> level.coarseShift);
            const Displacement predicted = doubled(larger.displacement);
            Candidates candidates(level.from, level.to, grid->block(column, row), predicted,
                                  level.reach);
            candidates.offer(predicted);
            candidates.offer({});
            offerNeighbours(*grid, column, row, &candidates);
            if (level.searchesAlone && !candidates.explained()) candidates.offerAround(kOwnReach);
            candidates.refine(level.refinements);
            grid->at(column, row) = candidates.best();
        }
    }
}

// Blocks whose seed fits take it as it is. For the others the neighbours know the way, or nothing
// is like them: what was covered in the other frame.
void SearchSeeded(const LumaPlane& from, const LumaPlane& to, const BlockMatch* seeds,
                  BlockGrid* grid) {
    for (int row = 0; row < grid->rows(); ++row) {
        for (int column = 0; column < grid->columns(); ++column) {
            const Block block = grid->block(column, row);
            const BlockMatch& seed = *seeds++;
            Candidates candidates(from, to, block, seed.displacement, kMaxDisplacement);
            if (seed.difference != kUnseen) candidates.offer(seed.displacement);
            // What fits as well as on the way there is the same picture.
            const bool fits =
                seed.difference != kUnseen &&
                candidates.best().difference <= seed.difference + block.area() * kSettled;
            if (!fits) {
                candidates.offer({});
                offerNeighbours(*grid, column, row, &candidates);
                candidates.refine(kRefinements, 2);
                candidates.refine(1);
            }
            grid->at(column, row) = candidates.best();
        }
    }
}

}  // namespace
}  // namespace qoz::host::HWY_NAMESPACE
HWY_AFTER_NAMESPACE();

#if HWY_ONCE
namespace qoz::host {
namespace {

HWY_EXPORT(SearchCoarsest);
HWY_EXPORT(SearchLevel);
HWY_EXPORT(SearchSeeded);

// On reduced levels; with the reduction each block stands for 16 pixels of the source or more.
constexpr int kCoarseBlock = 8;

// What the exhaustive search of the coarsest level reaches: pixels of the source, and of the level
// at most.
constexpr int kSourceReach = 80;
constexpr int kLevelReach = 16;

// Each block's place in the other frame, where it leaves its way back; the better match wins.
void plantSeeds(const BlockGrid& back, std::vector<BlockMatch>* seeds) {
    constexpr int kBlock = static_cast<int>(kMotionBlock);
    seeds->assign(static_cast<size_t>(back.columns()) * static_cast<size_t>(back.rows()), {});
    for (int row = 0; row < back.rows(); ++row) {
        for (int column = 0; column < back.columns(); ++column) {
            const auto& [displacement, difference] = back.at(column, row);
            const int toColumn = (column * kBlock + displacement.dx + kBlock / 2) >> 4;
            const int toRow = (row * kBlock + displacement.dy + kBlock / 2) >> 4;
            if (difference == kUnseen || !back.has(toColumn, toRow)) continue;
            BlockMatch& seed = (*seeds)[back.index(toColumn, toRow)];
            if (difference < seed.difference)
                seed = {{-displacement.dx, -displacement.dy}, difference};
        }
    }
}

}  // namespace

void BlockSearch::resetGrids(const LumaPyramid& from) {
    const LumaPlane& whole = from.level(0);
    int columns = static_cast<int>(fieldWidth(static_cast<uint32_t>(whole.width)));
    int rows = static_cast<int>(fieldHeight(static_cast<uint32_t>(whole.height)));
    for (int level = 0; level < from.levels(); ++level) {
        // Half the block on half the picture: the first two grids match one to one.
        if (level > 1) {
            columns = (columns + 1) / 2;
            rows = (rows + 1) / 2;
        }
        const int size = level == 0 ? static_cast<int>(kMotionBlock) : kCoarseBlock;
        mGrids[static_cast<size_t>(level)].reset(from.level(level), columns, rows, size);
    }
}

BlockGrid& BlockSearch::search(const LumaPyramid& from, const LumaPyramid& to) {
    resetGrids(from);
    const int coarsest = from.levels() - 1;
    const int reach = std::min(kSourceReach >> coarsest, kLevelReach);
    HWY_DYNAMIC_DISPATCH(SearchCoarsest)
    (from.level(coarsest), to.level(coarsest), reach, &mGrids[static_cast<size_t>(coarsest)]);
    for (int level = coarsest - 1; level >= 0; --level) {
        // At full size gradients take the step to the next pixel.
        const Level parameters{.from = from.level(level),
                               .to = to.level(level),
                               .reach = kMaxDisplacement >> level,
                               .coarseShift = level == 0 ? 0 : 1,
                               .refinements = level == 0 ? 0 : kRefinements,
                               .searchesAlone = level + 1 == coarsest};
        HWY_DYNAMIC_DISPATCH(SearchLevel)
        (parameters, mGrids[static_cast<size_t>(level) + 1], &mGrids[static_cast<size_t>(level)]);
    }
    return mGrids[0];
}

BlockGrid& BlockSearch::searchBack(const LumaPyramid& from, const LumaPyramid& to,
                                   const BlockGrid& back) {
    mGrids[0].reset(from.level(0), back.columns(), back.rows(), static_cast<int>(kMotionBlock));
    plantSeeds(back, &mSeeds);
    HWY_DYNAMIC_DISPATCH(SearchSeeded)(from.level(0), to.level(0), mSeeds.data(), &mGrids[0]);
    return mGrids[0];
}

}  // namespace qoz::host
#endif
