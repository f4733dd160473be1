// SPDX-License-Identifier: Apache-2.0
#include <host/converter/BlockSearch.h>
#include <host/converter/MotionField.h>

#include <algorithm>
#include <cstdlib>

namespace qoz::host {
namespace {

// On reduced levels; with the reduction each block stands for 16 pixels of the source or more.
constexpr int kCoarseBlock = 8;

// What the exhaustive search of the coarsest level reaches: pixels of the source, and of the level
// at most.
constexpr int kSourceReach = 80;
constexpr int kLevelReach = 16;

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

// Rounds of single steps, each way; at full size, where gradients take it further, one will do.
constexpr int kRefinements = 2;

// A mean difference of one grey level is as good as none.
constexpr uint32_t kSettled = 1;

// One block's candidates and the best of them.
class Contest {
  public:
    Contest(const LumaPlane& from, const LumaPlane& to, const Block& block, Displacement predicted,
            int reach)
        : mFrom(from), mTo(to), mBlock(block), mPredicted(predicted), mReach(reach) {}

    void offer(Displacement candidate) {
        if (std::abs(candidate.dx) > mReach || std::abs(candidate.dy) > mReach) return;
        if (mTried > 0 && candidate == mBest.displacement) return;
        const uint32_t difference = blockDifference(mFrom, mTo, mBlock, candidate);
        if (difference == kUnseen) return;
        const uint32_t cost = difference + bias(candidate);
        if (mTried++ > 0 && cost >= mCost) return;
        mBest = {candidate, difference};
        mCost = cost;
    }

    // Every displacement within `reach` of none, unless a good one is known.
    void offerAround(int reach) {
        if (settled()) return;
        for (int dy = -reach; dy <= reach; ++dy) {
            for (int dx = -reach; dx <= reach; ++dx)
                offer({dx, dy});
        }
    }

    // Steps of one pixel from the best, for as long as they help.
    void refine(int rounds) {
        constexpr Displacement kSteps[] = {{0, -1}, {-1, 0}, {1, 0}, {0, 1}};
        for (int round = 0; round < rounds && !settled(); ++round) {
            const Displacement centre = mBest.displacement;
            for (const auto& [dx, dy] : kSteps)
                offer({centre.dx + dx, centre.dy + dy});
            if (mBest.displacement == centre) return;
        }
    }

    bool plausible() const { return mBest.difference < kPlausible * mBlock.area(); }
    bool explained() const { return mBest.difference < kUnexplained * mBlock.area(); }
    const BlockMatch& best() const { return mBest; }

  private:
    bool settled() const { return mBest.difference < mBlock.area() * kSettled; }

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

    int mTried = 0;
    BlockMatch mBest;
    uint32_t mCost = 0;
};

Displacement doubled(Displacement coarse) {
    return {coarse.dx * 2, coarse.dy * 2};
}

// The blocks of the same level that are done already: most blocks move as one of them does, and
// then need no search of their own.
void offerNeighbours(const BlockGrid& grid, int column, int row, Contest* contest) {
    constexpr int kDone[][2] = {{-1, 0}, {0, -1}, {1, -1}};
    for (const auto& [right, down] : kDone) {
        if (!grid.has(column + right, row + down)) continue;
        contest->offer(grid.at(column + right, row + down).displacement);
    }
}

void searchCoarsest(const LumaPlane& from, const LumaPlane& to, int level, BlockGrid* grid) {
    const int reach = std::min(kSourceReach >> level, kLevelReach);
    for (int row = 0; row < grid->rows(); ++row) {
        for (int column = 0; column < grid->columns(); ++column) {
            Contest contest(from, to, grid->block(column, row), {}, reach);
            contest.offer({});
            offerNeighbours(*grid, column, row, &contest);
            if (!contest.plausible()) contest.offerAround(reach);
            contest.refine(kRefinements);
            grid->at(column, row) = contest.best();
        }
    }
}

struct Level {
    const LumaPlane& from;
    const LumaPlane& to;
    int reach;
    int coarseShift;     // from a column or row of this grid to that of the coarser one
    int refinements;     // rounds of single steps, each way
    bool searchesAlone;  // blocks that no prediction explains are searched for
};

void searchLevel(const Level& level, const BlockGrid& coarse, BlockGrid* grid) {
    for (int row = 0; row < grid->rows(); ++row) {
        for (int column = 0; column < grid->columns(); ++column) {
            const BlockMatch& larger =
                coarse.at(column >> level.coarseShift, row >> level.coarseShift);
            const Displacement predicted = doubled(larger.displacement);
            Contest contest(level.from, level.to, grid->block(column, row), predicted, level.reach);
            contest.offer(predicted);
            contest.offer({});
            offerNeighbours(*grid, column, row, &contest);
            if (level.searchesAlone && !contest.explained()) contest.offerAround(kOwnReach);
            contest.refine(level.refinements);
            grid->at(column, row) = contest.best();
        }
    }
}

}  // namespace

void BlockGrid::reset(const LumaPlane& plane, int columns, int rows, int blockSize) {
    mColumns = columns;
    mRows = rows;
    mBlockSize = blockSize;
    mLastX = std::max(0, plane.width - blockSize);
    mLastY = std::max(0, plane.height - blockSize);
    mMatches.assign(static_cast<size_t>(columns) * static_cast<size_t>(rows), BlockMatch{});
}

Block BlockGrid::block(int column, int row) const {
    return {std::min(column * mBlockSize, mLastX), std::min(row * mBlockSize, mLastY), mBlockSize};
}

BlockGrid& BlockSearch::search(const LumaPyramid& from, const LumaPyramid& to) {
    const LumaPlane& whole = from.level(0);
    int columns = static_cast<int>(fieldWidth(static_cast<uint32_t>(whole.width)));
    int rows = static_cast<int>(fieldHeight(static_cast<uint32_t>(whole.height)));
    const int coarsest = from.levels() - 1;
    for (int level = 0; level <= coarsest; ++level) {
        // Half the block on half the picture: the first two grids match one to one.
        if (level > 1) {
            columns = (columns + 1) / 2;
            rows = (rows + 1) / 2;
        }
        const int size = level == 0 ? static_cast<int>(kMotionBlock) : kCoarseBlock;
        mGrids[static_cast<size_t>(level)].reset(from.level(level), columns, rows, size);
    }

    searchCoarsest(from.level(coarsest), to.level(coarsest), coarsest,
                   &mGrids[static_cast<size_t>(coarsest)]);
    for (int level = coarsest - 1; level >= 0; --level) {
        const Level parameters{from.level(level),
                               to.level(level),
                               kMaxDisplacement >> level,
                               level == 0 ? 0 : 1,
                               level == 0 ? 1 : kRefinements,
                               level + 1 == coarsest};
        searchLevel(parameters, mGrids[static_cast<size_t>(level) + 1],
                    &mGrids[static_cast<size_t>(level)]);
    }
    return mGrids[0];
}

}  // namespace qoz::host
