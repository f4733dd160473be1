// SPDX-License-Identifier: Apache-2.0
#include <host/converter/FieldSmoothing.h>

#include <algorithm>
#include <cstdlib>
#include <iterator>
#include <vector>

#undef HWY_TARGET_INCLUDE
#define HWY_TARGET_INCLUDE "host/converter/FieldSmoothing.cpp"
#include <hwy/foreach_target.h>  // compiles the rest of this file for each target
// These follow it because they are compiled for each target too.
#include <host/converter/BlockKernels-inl.h>
#include <hwy/highway.h>

HWY_BEFORE_NAMESPACE();
namespace qoz::host::HWY_NAMESPACE {
namespace {

// The cost of a vector out of the picture, in grey levels per pixel. A block without a better match
// inside then moves out with its neighbours.
constexpr uint32_t kUnseenCost = 10;

// Each of the eight neighbours charges 1/16 grey level per pixel of disagreement, and 1/2 grey
// level at most.
constexpr int16_t kChargedDistance = 8;
constexpr uint32_t kChargeShare = 16;

constexpr int kAround[][2] = {{-1, -1}, {0, -1}, {1, -1}, {-1, 0}, {1, 0}, {-1, 1}, {0, 1}, {1, 1}};

// Visits one block after another and gives it a neighbour's vector if that lowers the sum of its
// difference and the disagreement with all neighbours. A block is visited again only after a
// neighbour has changed.
class Smoother {
  public:
    Smoother(const LumaPlane& from, const LumaPlane& to, BlockGrid* grid)
        : mFrom(from),
          mTo(to),
          mGrid(*grid),
          mDue(static_cast<size_t>(grid->columns()) * static_cast<size_t>(grid->rows()), 1) {}

    // Improves a block, unless nothing around it has changed or its neighbours agree with it.
    HWY_INLINE void visit(int column, int row) {
        uint8_t& due = mDue[mGrid.index(column, row)];
        if (due == 0) return;
        due = 0;
        lookAround(column, row);
        const BlockMatch& own = mGrid.at(column, row);
        // A block that matches within one grey level may disagree by one pixel: the subpixel
        // measurement corrects that later.
        const int apart = own.difference <= mGrid.block(column, row).area() ? 1 : 0;
        const auto [right, down] = distancesFrom(own.displacement);
        const auto far =
            hn::Gt(hn::Max(right, down), hn::Set(Lanes(), static_cast<int16_t>(apart)));
        if (!hn::AllFalse(Lanes(), far)) improve(column, row);
    }

  private:
    using Lanes = hn::FixedTag<int16_t, std::size(kAround)>;
    using Around = hn::VFromD<Lanes>;
    struct Distances {
        Around right;
        Around down;
    };

    // Loads the neighbours' vectors.
    HWY_INLINE void lookAround(int column, int row) {
        for (size_t i = 0; i < std::size(kAround); ++i) {
            const auto& [right, down] = kAround[i];
            mThere[i] = mGrid.has(column + right, row + down) ? -1 : 0;
            if (mThere[i] == 0) continue;
            const auto [dx, dy] = mGrid.at(column + right, row + down).displacement;
            mDx[i] = static_cast<int16_t>(dx);
            mDy[i] = static_cast<int16_t>(dy);
        }
    }

    // Returns the distances of the neighbours' vectors from `own`. Neighbours outside the grid have
    // distance 0.
    HWY_INLINE Distances distancesFrom(Displacement own) const {
        const Lanes d;
        const auto there = hn::Load(d, mThere);
        const auto from = [&](const int16_t* others, int value) HWY_ATTR {
            const auto apart =
                hn::Sub(hn::Load(d, others), hn::Set(d, static_cast<int16_t>(value)));
            return hn::And(hn::Abs(apart), there);
        };
        return {from(mDx, own.dx), from(mDy, own.dy)};
    }

    // Gives the block the cheapest of its own and its neighbours' vectors. After a change, the
    // neighbours are due for another visit.
    void improve(int column, int row) {
        BlockMatch& own = mGrid.at(column, row);
        const Block block = mGrid.block(column, row);
        const Displacement before = own.displacement;
        uint32_t least = disagreement(block, before) +
                         (own.difference == kUnseen ? kUnseenCost * block.area() : own.difference);
        for (size_t i = 0; i < std::size(kAround); ++i) {
            const Displacement other = {mDx[i], mDy[i]};
            if (mThere[i] == 0 || other == before || isBefore(i, other)) continue;
            const uint32_t charge = disagreement(block, other);
            if (charge >= least) continue;
            const uint32_t difference = blockDifference(mFrom, mTo, block, other, least - charge);
            const uint32_t cost =
                charge + (difference == kUnseen ? kUnseenCost * block.area() : difference);
            if (cost >= least) continue;
            own = {other, difference};
            least = cost;
        }
        if (own.displacement == before) return;
        for (const auto& [right, down] : kAround) {
            if (mGrid.has(column + right, row + down))
                mDue[mGrid.index(column + right, row + down)] = 1;
        }
    }

    // Returns whether one of the first `count` neighbours has this displacement.
    HWY_INLINE bool isBefore(size_t count, Displacement displacement) const {
        for (size_t i = 0; i < count; ++i) {
            if (mThere[i] != 0 && mDx[i] == displacement.dx && mDy[i] == displacement.dy)
                return true;
        }
        return false;
    }

    // Returns the disagreement that the neighbours charge for a vector of this block.
    HWY_INLINE uint32_t disagreement(const Block& block, Displacement own) const {
        const Lanes d;
        const auto [right, down] = distancesFrom(own);
        const auto charged = hn::Min(hn::Add(right, down), hn::Set(d, kChargedDistance));
        return static_cast<uint32_t>(hn::GetLane(hn::SumOfLanes(d, charged))) * block.area() /
               kChargeShare;
    }

    const LumaPlane& mFrom;
    const LumaPlane& mTo;
    BlockGrid& mGrid;
    std::vector<uint8_t> mDue;  // 1: the block is to be visited
    // The neighbours of the current block: all bits set if the neighbour exists, and its
    // displacement.
    HWY_ALIGN int16_t mThere[std::size(kAround)] = {};
    HWY_ALIGN int16_t mDx[std::size(kAround)] = {};
    HWY_ALIGN int16_t mDy[std::size(kAround)] = {};
};

void SmoothField(const LumaPlane& from, const LumaPlane& to, BlockGrid* grid) {
    Smoother smoother(from, to, grid);
    // Two passes in opposite directions: a correct vector can spread over any number of blocks, on
    // whichever side it is.
    for (int row = grid->rows() - 1; row >= 0; --row) {
        for (int column = grid->columns() - 1; column >= 0; --column)
            smoother.visit(column, row);
    }
    for (int row = 0; row < grid->rows(); ++row) {
        for (int column = 0; column < grid->columns(); ++column)
            smoother.visit(column, row);
    }
}

}  // namespace
}  // namespace qoz::host::HWY_NAMESPACE
HWY_AFTER_NAMESPACE();

#if HWY_ONCE
namespace qoz::host {
namespace {

HWY_EXPORT(SmoothField);

}  // namespace

void smoothField(const LumaPlane& from, const LumaPlane& to, BlockGrid* grid) {
    HWY_DYNAMIC_DISPATCH(SmoothField)(from, to, grid);
}

}  // namespace qoz::host
#endif
