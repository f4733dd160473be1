// SPDX-License-Identifier: Apache-2.0
#include <host/converter/FieldSmoothing.h>

#include <algorithm>
#include <cstdlib>
#include <iterator>
#include <vector>

#undef HWY_TARGET_INCLUDE
#define HWY_TARGET_INCLUDE "host/converter/FieldSmoothing.cpp"
#include <hwy/foreach_target.h>  // compiles what follows once for each target
// After it, as it is compiled once for each target too.
#include <host/converter/BlockKernels-inl.h>
#include <hwy/highway.h>

HWY_BEFORE_NAMESPACE();
namespace qoz::host::HWY_NAMESPACE {
namespace {

// Grey levels per pixel that a vector out of the picture costs: a block that finds no better
// likeness inside moves on with its neighbours.
constexpr uint32_t kUnseenCost = 10;

// Each of the eight neighbours charges 1/16 grey level for a pixel of disagreement, 1/2 at most.
constexpr int kChargedDistance = 8;
constexpr uint32_t kChargeShare = 16;

constexpr int kAround[][2] = {{-1, -1}, {0, -1}, {1, -1}, {-1, 0}, {1, 0}, {-1, 1}, {0, 1}, {1, 1}};

// Looks at one block after the other, and gives it a neighbour's vector where that makes the whole
// of what is unlike and what disagrees less. A block is looked at again only once one around it has
// changed.
class Smoother {
  public:
    Smoother(const LumaPlane& from, const LumaPlane& to, BlockGrid* grid)
        : mFrom(from),
          mTo(to),
          mGrid(*grid),
          mDue(static_cast<size_t>(grid->columns()) * static_cast<size_t>(grid->rows()), 1) {}

    HWY_INLINE void visit(int column, int row) {
        uint8_t& due = mDue[mGrid.index(column, row)];
        if (due == 0) return;
        due = 0;
        lookAround(column, row);
        const BlockMatch& own = mGrid.at(column, row);
        // What fits within a grey level need agree to a pixel only: it is measured more finely
        // later.
        const int apart = own.difference <= mGrid.block(column, row).area() ? 1 : 0;
        for (int i = 0; i < mCount; ++i) {
            const Displacement other = mAround[i];
            if (std::abs(own.displacement.dx - other.dx) > apart ||
                std::abs(own.displacement.dy - other.dy) > apart) {
                improve(column, row);
                return;
            }
        }
    }

  private:
    HWY_INLINE void lookAround(int column, int row) {
        mCount = 0;
        for (const auto& [right, down] : kAround) {
            if (!mGrid.has(column + right, row + down)) continue;
            mAround[mCount++] = mGrid.at(column + right, row + down).displacement;
        }
    }

    void improve(int column, int row) {
        BlockMatch& own = mGrid.at(column, row);
        const Block block = mGrid.block(column, row);
        const Displacement before = own.displacement;
        uint32_t least = disagreement(block, before) +
                         (own.difference == kUnseen ? kUnseenCost * block.area() : own.difference);
        for (int i = 0; i < mCount; ++i) {
            const Displacement other = mAround[i];
            if (other == before || std::find(mAround, mAround + i, other) != mAround + i) continue;
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

    // What the neighbours charge for such a vector.
    HWY_INLINE uint32_t disagreement(const Block& block, Displacement own) const {
        uint32_t sum = 0;
        for (int i = 0; i < mCount; ++i) {
            const int distance =
                std::abs(own.dx - mAround[i].dx) + std::abs(own.dy - mAround[i].dy);
            sum += static_cast<uint32_t>(std::min(distance, kChargedDistance));
        }
        return sum * block.area() / kChargeShare;
    }

    const LumaPlane& mFrom;
    const LumaPlane& mTo;
    BlockGrid& mGrid;
    std::vector<uint8_t> mDue;                 // blocks to be looked at, 1 or 0
    Displacement mAround[std::size(kAround)];  // of the neighbours of the block in hand
    int mCount = 0;
};

void SmoothField(const LumaPlane& from, const LumaPlane& to, BlockGrid* grid) {
    Smoother smoother(from, to, grid);
    // Both ways: a vector that is right travels over any number of blocks, whichever side it is on.
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
