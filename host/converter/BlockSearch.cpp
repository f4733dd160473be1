// SPDX-License-Identifier: Apache-2.0
#include <host/converter/BlockSearch.h>
#include <host/converter/MotionField.h>

#include <algorithm>
#include <cstdlib>

#undef HWY_TARGET_INCLUDE
#define HWY_TARGET_INCLUDE "host/converter/BlockSearch.cpp"
#include <hwy/foreach_target.h>  // compiles the rest of this file for each target
// These follow it because they are compiled for each target too.
#include <host/converter/BlockKernels-inl.h>
#include <hwy/highway.h>

#ifndef QOZ_HOST_CONVERTER_BLOCK_SEARCH_ONCE
#define QOZ_HOST_CONVERTER_BLOCK_SEARCH_ONCE
namespace qoz::host {
namespace {

// The number of rounds in which a match is moved by single steps.
constexpr int kRefinements = 2;

// The parameters of the search on one level of the pyramid.
struct Level {
    const LumaPlane& from;
    const LumaPlane& to;
    int reach;           // largest displacement, in pixels of this level
    int coarseShift;     // column >> coarseShift is the column in the coarser grid; likewise rows
    int refinements;     // rounds of single steps
    bool searchesAlone;  // searches around each block that no prediction explains
};

}  // namespace
}  // namespace qoz::host
#endif

HWY_BEFORE_NAMESPACE();
namespace qoz::host::HWY_NAMESPACE {
namespace {

// Grey levels. On the coarsest level, a candidate with a smaller mean difference makes the
// exhaustive search unnecessary.
constexpr uint32_t kPlausible = 2;

// Grey levels, and pixels of the level. One level below the coarsest, a small block may move on its
// own within a larger block that does not. If no candidate has a smaller mean difference than
// kUnexplained, the block is searched for within kOwnReach.
constexpr uint32_t kUnexplained = 6;
constexpr int kOwnReach = 6;

// A candidate pays for its distance from the prediction: 1/8 grey level for each pixel of distance,
// and one grey level at most. Blocks without texture therefore follow their surroundings and not
// the noise.
constexpr int kBiasedDistance = 8;
constexpr uint32_t kBiasShare = 8;

// Grey levels. A match with a smaller mean difference is good enough to end the search.
constexpr uint32_t kSettled = 1;

// A whole block of 8x8 pixels, held in registers to be compared with many others.
class BlockOf8 {
  public:
    static constexpr int kSize = 8;

    HWY_INLINE BlockOf8(const uint8_t* pixels, ptrdiff_t stride)
        : mRows{pairOf(pixels, 0, stride), pairOf(pixels, 1, stride), pairOf(pixels, 2, stride),
                pairOf(pixels, 3, stride)} {}

    // Sum of the absolute differences from another block.
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

// Compares the candidates of one block and keeps the best. The cost of a candidate is its
// difference and its distance from the prediction, see bias().
class Candidates {
  public:
    HWY_INLINE Candidates(const LumaPlane& from, const LumaPlane& to, const Block& block,
                          Displacement predicted, int reach)
        : mFrom(from), mTo(to), mBlock(block), mPredicted(predicted), mReach(reach) {}

    // Compares a candidate, unless it has been compared before or the best one fits already.
    HWY_INLINE void offer(Displacement candidate) {
        if (settled()) return;
        for (int i = 0; i < mOffered; ++i) {
            if (mKnown[i] == candidate) return;
        }
        if (mOffered < kMostKnown) mKnown[mOffered++] = candidate;
        compare(candidate);
    }

    // Compares every displacement of at most `reach` in each direction, unless the best one fits
    // already.
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

    // Compares the four displacements that are `step` pixels from the best. Repeats this up to
    // `rounds` times, as long as the match improves.
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

    // Compares a candidate within reach. The comparison stops as soon as the candidate cannot beat
    // the best cost.
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

    // Compares the displacements of one row. Those that stay inside the plane use the block in
    // registers.
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

    // Keeps the candidate if its cost is lower than that of the best.
    HWY_INLINE void take(Displacement candidate, uint32_t dearer, uint32_t difference) {
        const uint32_t cost = difference + dearer;
        if (cost >= mCost) return;
        mBest = {candidate, difference};
        mCost = cost;
    }

    // The penalty of a candidate for its distance from the prediction, see kBiasedDistance.
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

// A vector of the coarser level, in pixels of this one.
Displacement doubled(Displacement coarse) {
    return {coarse.dx * 2, coarse.dy * 2};
}

// Offers the vectors of the neighbours that are already done, to the left, above and above right.
// Most blocks move like one of them and then need no search.
HWY_INLINE void offerNeighbours(const BlockGrid& grid, int column, int row,
                                Candidates* candidates) {
    constexpr int kDone[][2] = {{-1, 0}, {0, -1}, {1, -1}};
    for (const auto& [right, down] : kDone) {
        if (!grid.has(column + right, row + down)) continue;
        candidates->offer(grid.at(column + right, row + down).displacement);
    }
}

// Searches the coarsest level, exhaustively for blocks without a plausible candidate.
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

// Searches one level, with the doubled vectors of the coarser level as predictions.
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

// Searches from seeds. A block whose seed fits takes it as it is. Another block tries its
// neighbours' vectors and small steps; it may also be covered in the other frame and have no match
// at all.
void SearchSeeded(const LumaPlane& from, const LumaPlane& to, const BlockMatch* seeds,
                  BlockGrid* grid) {
    for (int row = 0; row < grid->rows(); ++row) {
        for (int column = 0; column < grid->columns(); ++column) {
            const Block block = grid->block(column, row);
            const BlockMatch& seed = *seeds++;
            Candidates candidates(from, to, block, seed.displacement, kMaxDisplacement);
            if (seed.difference != kUnseen) candidates.offer(seed.displacement);
            // The seed fits if it matches about as well as in the direction in which it was found.
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

// Block size of the reduced levels. Scaled to the source, a block has 16 pixels or more on each
// side.
constexpr int kCoarseBlock = 8;

// The reach of the exhaustive search: in pixels of the source, and at most in pixels of the level.
constexpr int kSourceReach = 80;
constexpr int kLevelReach = 16;

// Turns the matches of one direction into seeds for the other. Each block leaves its reversed
// vector at the place where it was found. If several blocks lead to one place, the best match
// counts.
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
        // Level 1 has half the block size on half the picture, so its grid is the same as that of
        // level 0.
        if (level > 1) {
            columns = (columns + 1) / 2;
            rows = (rows + 1) / 2;
        }
        const int size = level == 0 ? static_cast<int>(kMotionBlock) : kCoarseBlock;
        mGrids[static_cast<size_t>(level)].reset(from.level(level), columns, rows, size);
    }
}

// Each level starts from the vectors of the coarser one. Only the coarsest level, which has few
// pixels, is searched exhaustively.
BlockGrid& BlockSearch::search(const LumaPyramid& from, const LumaPyramid& to) {
    resetGrids(from);
    const int coarsest = from.levels() - 1;
    const int reach = std::min(kSourceReach >> coarsest, kLevelReach);
    HWY_DYNAMIC_DISPATCH(SearchCoarsest)
    (from.level(coarsest), to.level(coarsest), reach, &mGrids[static_cast<size_t>(coarsest)]);
    for (int level = coarsest - 1; level >= 0; --level) {
        // At full size no single steps are needed: the subpixel measurement corrects an error of
        // one pixel.
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
