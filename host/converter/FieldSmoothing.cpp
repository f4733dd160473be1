// SPDX-License-Identifier: Apache-2.0
#include <host/converter/FieldSmoothing.h>

#include <algorithm>
#include <cstdlib>
#include <iterator>

namespace qoz::host {
namespace {

// Grey levels per pixel that a vector out of the picture costs: a block that finds no better
// likeness inside moves on with its neighbours.
constexpr uint32_t kUnseenCost = 10;

// Each of the eight neighbours charges 1/16 grey level for a pixel of disagreement, 1/2 at most.
constexpr int kChargedDistance = 8;
constexpr uint32_t kChargeShare = 16;

constexpr int kAround[][2] = {{-1, -1}, {0, -1}, {1, -1}, {-1, 0}, {1, 0}, {-1, 1}, {0, 1}, {1, 1}};

class Smoother {
  public:
    Smoother(const LumaPlane& from, const LumaPlane& to, BlockGrid* grid)
        : mFrom(from), mTo(to), mGrid(*grid) {}

    void visit(int column, int row) {
        BlockMatch& own = mGrid.at(column, row);
        const Block block = mGrid.block(column, row);
        const bool fits = own.difference <= block.area();
        if (agrees(column, row, own.displacement, fits ? 1 : 0)) return;
        uint32_t least = energy(column, row, block, own);
        for (const auto& [right, down] : kAround) {
            if (!mGrid.has(column + right, row + down)) continue;
            const Displacement other = mGrid.at(column + right, row + down).displacement;
            if (other == own.displacement) continue;
            const BlockMatch match{other, blockDifference(mFrom, mTo, block, other)};
            const uint32_t cost = energy(column, row, block, match);
            if (cost >= least) continue;
            own = match;
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

    uint32_t energy(int column, int row, const Block& block, const BlockMatch& match) const {
        uint32_t disagreement = 0;
        for (const auto& [right, down] : kAround) {
            if (!mGrid.has(column + right, row + down)) continue;
            const Displacement other = mGrid.at(column + right, row + down).displacement;
            const int distance = std::abs(match.displacement.dx - other.dx) +
                                 std::abs(match.displacement.dy - other.dy);
            disagreement += static_cast<uint32_t>(std::min(distance, kChargedDistance));
        }
        const uint32_t unlikeness =
            match.difference == kUnseen ? kUnseenCost * block.area() : match.difference;
        return unlikeness + disagreement * block.area() / kChargeShare;
    }

    const LumaPlane& mFrom;
    const LumaPlane& mTo;
    BlockGrid& mGrid;
};

}  // namespace

void smoothField(const LumaPlane& from, const LumaPlane& to, BlockGrid* grid) {
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

}  // namespace qoz::host
