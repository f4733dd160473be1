// SPDX-License-Identifier: Apache-2.0
#include <host/converter/FieldSmoothing.h>

#include <algorithm>
#include <cstdlib>
#include <iterator>

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
// of what is unlike and what disagrees less.
class Smoother {
  public:
    Smoother(const LumaPlane& from, const LumaPlane& to, BlockGrid* grid)
        : mFrom(from), mTo(to), mGrid(*grid) {}

    void visit(int column, int row) {
        BlockMatch& own = mGrid.at(column, row);
        const Block block = mGrid.block(column, row);
        const bool fits = own.difference <= block.area();
        if (agrees(column, row, own.displacement, fits ? 1 : 0)) return;
        uint32_t least = disagreement(column, row, block, own.displacement) +
                         (own.difference == kUnseen ? kUnseenCost * block.area() : own.difference);
        Displacement tried[std::size(kAround) + 1] = {own.displacement};
        int count = 1;
        for (const auto& [right, down] : kAround) {
            if (!mGrid.has(column + right, row + down)) continue;
            const Displacement other = mGrid.at(column + right, row + down).displacement;
            if (std::find(tried, tried + count, other) != tried + count) continue;
            tried[count++] = other;
            const uint32_t charge = disagreement(column, row, block, other);
            if (charge >= least) continue;
            const uint32_t difference = blockDifference(mFrom, mTo, block, other, least - charge);
            const uint32_t cost =
                charge + (difference == kUnseen ? kUnseenCost * block.area() : difference);
            if (cost >= least) continue;
            own = {other, difference};
            least = cost;
        }
    }

  private:
    // What fits within a grey level need agree to a pixel only: it is measured more finely later.
    bool agrees(int column, int row, Displacement own, int apart) const {
        return std::all_of(std::begin(kAround), std::end(kAround), [&](const auto& beside) {
            if (!mGrid.has(column + beside[0], row + beside[1])) return true;
            const Displacement other = mGrid.at(column + beside[0], row + beside[1]).displacement;
            return std::abs(own.dx - other.dx) <= apart && std::abs(own.dy - other.dy) <= apart;
        });
    }

    // What the neighbours charge for such a vector.
    uint32_t disagreement(int column, int row, const Block& block, Displacement own) const {
        uint32_t sum = 0;
        for (const auto& [right, down] : kAround) {
            if (!mGrid.has(column + right, row + down)) continue;
            const Displacement other = mGrid.at(column + right, row + down).displacement;
            const int distance = std::abs(own.dx - other.dx) + std::abs(own.dy - other.dy);
            sum += static_cast<uint32_t>(std::min(distance, kChargedDistance));
        }
        return sum * block.area() / kChargeShare;
    }

    const LumaPlane& mFrom;
    const LumaPlane& mTo;
    BlockGrid& mGrid;
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
