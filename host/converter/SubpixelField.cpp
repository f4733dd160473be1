// SPDX-License-Identifier: Apache-2.0
#include <host/converter/BlockKernels.h>
#include <host/converter/SubpixelField.h>

#include <algorithm>
#include <cmath>

namespace qoz::host {
namespace {

constexpr float kPixels = 16 * 16;
constexpr float kLongestStep = 1.5F;  // pixels; a longer one was no small displacement

// Squared grey levels per pixel: what the noise of a block is worth, and the pull of one neighbour.
constexpr float kNoise = 0.5F;
constexpr float kPull = 1.5F;

// Neighbours further apart than this belong to other layers. Pixels.
constexpr float kSameLayer = 1.6F;

constexpr int kRounds = 4;
constexpr int kAround[][2] = {{0, -1}, {-1, 0}, {1, 0}, {0, 1}};

float distance(const Motion& a, const Motion& b) {
    return std::max(std::abs(a.dx - b.dx), std::abs(a.dy - b.dy));
}

size_t indexOf(const BlockGrid& grid, int column, int row) {
    return static_cast<size_t>(row) * static_cast<size_t>(grid.columns()) +
           static_cast<size_t>(column);
}

bool hasRim(const LumaPlane& plane, int x, int y) {
    return x >= 1 && y >= 1 && x + 17 <= plane.width && y + 17 <= plane.height;
}

}  // namespace

// One step of Gauss and Newton from a whole displacement; false: it leads too far to be believed,
// or there is nothing to measure.
bool SubpixelField::step(const LumaPlane& from, const LumaPlane& to, const Block& block,
                         Displacement displacement, Evidence* evidence) {
    const auto [dx, dy] = displacement;
    // Blocks at the edges are measured a pixel further in.
    const auto inside = [](int at, int by, int side) {
        const int low = std::max(1, 1 - by);
        const int high = std::min(side - 17, side - 17 - by);
        return std::clamp(at, low, std::max(low, high));
    };
    const int x = inside(block.x, dx, from.width);
    const int y = inside(block.y, dy, from.height);
    if (!hasRim(from, x, y) || !hasRim(to, x + dx, y + dy)) return false;

    const GradientSums sums =
        gradientSums16(from.at(x, y), from.width, to.at(x + dx, y + dy), to.width);
    // The gradients' sum is four times their mean; without the means of both sides a change of
    // brightness moves nothing.
    const float gx = static_cast<float>(sums.x) / (4 * kPixels);
    const float gy = static_cast<float>(sums.y) / (4 * kPixels);
    const float r = static_cast<float>(sums.r) / kPixels;
    const float xx = static_cast<float>(sums.xx) / (16 * kPixels) - gx * gx;
    const float xy = static_cast<float>(sums.xy) / (16 * kPixels) - gx * gy;
    const float yy = static_cast<float>(sums.yy) / (16 * kPixels) - gy * gy;
    const float xr = static_cast<float>(sums.xr) / (4 * kPixels) - gx * r;
    const float yr = static_cast<float>(sums.yr) / (4 * kPixels) - gy * r;

    const float determinant = (xx + kNoise) * (yy + kNoise) - xy * xy;
    const float stepX = -((yy + kNoise) * xr - xy * yr) / determinant;
    const float stepY = -((xx + kNoise) * yr - xy * xr) / determinant;
    if (std::max(std::abs(stepX), std::abs(stepY)) > kLongestStep) return false;
    evidence->own = {static_cast<float>(dx) + stepX, static_cast<float>(dy) + stepY};
    evidence->xx = xx;
    evidence->xy = xy;
    evidence->yy = yy;
    return true;
}

SubpixelField::Evidence SubpixelField::measure(const LumaPlane& from, const LumaPlane& to,
                                               const Block& block, BlockMatch* match) {
    const auto [dx, dy] = match->displacement;
    Evidence evidence;
    evidence.own = {static_cast<float>(dx), static_cast<float>(dy)};
    if (match->difference == kUnseen) return evidence;
    if (!step(from, to, block, match->displacement, &evidence)) return evidence;

    // A step to another whole pixel is taken from there once more, where that is no worse.
    const Displacement nearest = {static_cast<int>(std::lround(evidence.own.dx)),
                                  static_cast<int>(std::lround(evidence.own.dy))};
    if (nearest != match->displacement) {
        const BlockMatch moved{nearest, blockDifference(from, to, block, nearest)};
        if (moved.difference <= match->difference) {
            *match = moved;
            step(from, to, block, nearest, &evidence);
        }
    }
    // What stays unlike after the best match is noise to this block: it is less sure.
    const float error = static_cast<float>(match->difference) / kPixels;
    const float trust = 1 / (1 + error * error / 16);
    evidence.xx *= trust;
    evidence.xy *= trust;
    evidence.yy *= trust;
    return evidence;
}

Motion SubpixelField::agree(int column, int row, const BlockGrid& grid) const {
    const auto index = indexOf(grid, column, row);
    const Motion& here = mMotion[index];
    const Evidence& e = mEvidence[index];
    float weight = 0, sumX = 0, sumY = 0;
    for (const auto& [right, down] : kAround) {
        if (!grid.has(column + right, row + down)) continue;
        const Motion& other = mMotion[indexOf(grid, column + right, row + down)];
        if (distance(here, other) > kSameLayer) continue;
        weight += kPull;
        sumX += kPull * other.dx;
        sumY += kPull * other.dy;
    }
    if (weight == 0) return here;
    const float xx = e.xx + weight;
    const float yy = e.yy + weight;
    const float bx = e.xx * e.own.dx + e.xy * e.own.dy + sumX;
    const float by = e.xy * e.own.dx + e.yy * e.own.dy + sumY;
    const float determinant = xx * yy - e.xy * e.xy;
    return {(yy * bx - e.xy * by) / determinant, (xx * by - e.xy * bx) / determinant};
}

const std::vector<Motion>& SubpixelField::refine(const LumaPlane& from, const LumaPlane& to,
                                                 BlockGrid* grid) {
    const auto blocks = static_cast<size_t>(grid->columns()) * static_cast<size_t>(grid->rows());
    mEvidence.resize(blocks);
    mMotion.resize(blocks);
    for (int row = 0; row < grid->rows(); ++row) {
        for (int column = 0; column < grid->columns(); ++column) {
            const auto index = indexOf(*grid, column, row);
            mEvidence[index] = measure(from, to, grid->block(column, row), &grid->at(column, row));
            mMotion[index] = mEvidence[index].own;
        }
    }
    for (int round = 0; round < kRounds; ++round) {
        for (int row = 0; row < grid->rows(); ++row) {
            for (int column = 0; column < grid->columns(); ++column)
                mMotion[indexOf(*grid, column, row)] = agree(column, row, *grid);
        }
    }
    return mMotion;
}

}  // namespace qoz::host
