// SPDX-License-Identifier: Apache-2.0
#include <host/converter/SubpixelField.h>

#include <algorithm>
#include <cmath>

#undef HWY_TARGET_INCLUDE
#define HWY_TARGET_INCLUDE "host/converter/SubpixelField.cpp"
#include <hwy/foreach_target.h>  // compiles the rest of this file for each target
// These follow it because they are compiled for each target too.
#include <host/converter/BlockKernels-inl.h>
#include <hwy/highway.h>

HWY_BEFORE_NAMESPACE();
namespace qoz::host::HWY_NAMESPACE {
namespace {

// Every second row of a block is measured. The row below one measured row is the row above the
// next.
constexpr int kRowStep = 2;
constexpr float kPixels = 16.0F * 16 / kRowStep;

constexpr float kLongestStep = 1.5F;  // pixels; a longer step is not reliable

// Weights in squared grey levels per pixel: the noise of a block, and the pull of one neighbour.
constexpr float kNoise = 0.5F;
constexpr float kPull = 1.5F;

// Neighbours whose motion differs by more than this belong to other layers. In pixels.
constexpr float kSameLayer = 1.6F;

// Sums over a window of 16x16 pixels from which a small displacement is computed: products of the
// gradient and of the residual b - a. The gradient is the sum of the central differences in both
// windows, four times their mean.
struct GradientSums {
    int32_t xx, xy, yy;  // gradient by gradient
    int32_t xr, yr;      // gradient by residual
    int32_t x, y, r;     // alone
};

// Computes the sums. It also reads the pixels next to both windows.
HWY_INLINE GradientSums gradientSums(const uint8_t* a, ptrdiff_t aStride, const uint8_t* b,
                                     ptrdiff_t bStride) {
    const hn::CappedTag<int16_t, 16> d;
    const hn::Rebind<uint8_t, decltype(d)> bytes;
    const hn::RepartitionToWide<decltype(d)> wide;
    const auto load = [&](const uint8_t* p)
                          HWY_ATTR { return hn::PromoteTo(d, hn::LoadU(bytes, p)); };
    const auto zero = hn::Zero(wide);
    const auto none = hn::Zero(d);
    auto xx = zero, xy = zero, yy = zero, xr = zero, yr = zero;
    const auto add = [&](auto p, auto q, auto sum) HWY_ATTR {
        auto upper = zero;  // some targets put half of the products here
        sum = hn::ReorderWidenMulAccumulate(wide, p, q, sum, upper);
        return hn::Add(sum, upper);
    };
    auto x = none, y = none, r = none;  // the sum in one lane fits 16 bits
    for (size_t i = 0; i < 16; i += hn::Lanes(d)) {
        const auto both = [&](ptrdiff_t row, ptrdiff_t right) HWY_ATTR {
            const auto at = static_cast<ptrdiff_t>(i) + right;
            return hn::Add(load(a + row * aStride + at), load(b + row * bStride + at));
        };
        auto above = both(-1, 0);
        for (ptrdiff_t row = 0; row < 16; row += kRowStep) {
            const auto below = both(row + 1, 0);
            const auto gx = hn::Sub(both(row, 1), both(row, -1));
            const auto gy = hn::Sub(below, above);
            const auto residual = hn::Sub(load(b + row * bStride + i), load(a + row * aStride + i));
            above = below;  // for the next measured row
            xx = add(gx, gx, xx);
            xy = add(gx, gy, xy);
            yy = add(gy, gy, yy);
            xr = add(gx, residual, xr);
            yr = add(gy, residual, yr);
            x = hn::Add(x, gx);
            y = hn::Add(y, gy);
            r = hn::Add(r, residual);
        }
    }
    const auto total = [&](auto sum) HWY_ATTR { return hn::GetLane(hn::SumOfLanes(wide, sum)); };
    const auto widened = [&](auto sum) HWY_ATTR { return total(add(sum, hn::Set(d, 1), zero)); };
    return {total(xx), total(xy),  total(yy),  total(xr),
            total(yr), widened(x), widened(y), widened(r)};
}

// The measurement of one block. Without products it states its motion with no certainty.
struct BlockEvidence {
    Motion own;
    float xx = 0;
    float xy = 0;
    float yy = 0;
};

// Takes one Gauss-Newton step from a displacement of whole pixels. Returns false if the step is too
// long to be reliable or if there is no room for the window.
HWY_INLINE bool step(const LumaPlane& from, const LumaPlane& to, const Block& block,
                     Displacement displacement, BlockEvidence* evidence) {
    const auto [dx, dy] = displacement;
    // The window needs one pixel around it, so blocks at the edges are measured one pixel further
    // in.
    const auto inside = [](int at, int by, int side) {
        const int low = std::max(1, 1 - by);
        const int high = std::min(side - 17, side - 17 - by);
        return std::clamp(at, low, std::max(low, high));
    };
    const auto hasRim = [](const LumaPlane& plane, int x, int y) {
        return x >= 1 && y >= 1 && x + 17 <= plane.width && y + 17 <= plane.height;
    };
    const int x = inside(block.x, dx, from.width);
    const int y = inside(block.y, dy, from.height);
    if (!hasRim(from, x, y) || !hasRim(to, x + dx, y + dy)) return false;

    const GradientSums sums =
        gradientSums(from.at(x, y), from.width, to.at(x + dx, y + dy), to.width);
    // Divide by four to get the mean gradient. Subtracting the means of both sides removes the
    // effect of a change of brightness.
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

int nearest(float value) {
    return static_cast<int>(std::floor(value + 0.5F));
}

// Measures one block, and corrects its match if it is one pixel off.
BlockEvidence measure(const LumaPlane& from, const LumaPlane& to, const Block& block,
                      BlockMatch* match) {
    const auto [dx, dy] = match->displacement;
    BlockEvidence evidence;
    evidence.own = {static_cast<float>(dx), static_cast<float>(dy)};
    if (match->difference == kUnseen) return evidence;
    if (!step(from, to, block, match->displacement, &evidence)) return evidence;

    // If the step leads to another whole pixel that matches no worse, measure again from there.
    const Displacement whole = {nearest(evidence.own.dx), nearest(evidence.own.dy)};
    if (whole != match->displacement) {
        const BlockMatch moved{whole, blockDifference(from, to, block, whole)};
        if (moved.difference <= match->difference) {
            *match = moved;
            step(from, to, block, whole, &evidence);
        }
    }
    // A difference that remains after the best match is noise, which makes the measurement less
    // sure.
    const float error = static_cast<float>(match->difference) / (16 * 16);
    const float trust = 1 / (1 + error * error / 16);
    evidence.xx *= trust;
    evidence.xy *= trust;
    evidence.yy *= trust;
    return evidence;
}

// Measures all blocks of the grid.
void Measure(const LumaPlane& from, const LumaPlane& to, BlockGrid* grid, Evidence* evidence) {
    for (int row = 0; row < grid->rows(); ++row) {
        for (int column = 0; column < grid->columns(); ++column) {
            const BlockEvidence block =
                measure(from, to, grid->block(column, row), &grid->at(column, row));
            const size_t index = evidence->at(column, row);
            evidence->ownX[index] = evidence->dx[index] = block.own.dx;
            evidence->ownY[index] = evidence->dy[index] = block.own.dy;
            evidence->xx[index] = block.xx;
            evidence->xy[index] = block.xy;
            evidence->yy[index] = block.yy;
        }
    }
}

// Moves each block to the balance between its own measurement and the pull of its neighbours. It
// works in place, row by row, so that the new motion of the row above already counts. The cells of
// the rim stay far away: the only neighbours near them are other cells of the rim.
void Agree(Evidence* e) {
    const hn::ScalableTag<float> d;
    const auto pull = hn::Set(d, kPull);
    const auto far = hn::Set(d, kSameLayer);
    const size_t beside[] = {size_t{0} - 1, 1, size_t{0} - static_cast<size_t>(e->stride),
                             static_cast<size_t>(e->stride)};
    for (int row = 0; row < e->rows; ++row) {
        const size_t end = e->at(e->columns, row);
        for (size_t i = e->at(0, row); i < end; i += hn::Lanes(d)) {
            const auto load = [i, d](const std::vector<float>& plane, size_t by = 0)
                                  HWY_ATTR { return hn::LoadU(d, plane.data() + (i + by)); };
            const auto hereX = load(e->dx);
            const auto hereY = load(e->dy);
            auto weight = hn::Zero(d), sumX = hn::Zero(d), sumY = hn::Zero(d);
            for (const size_t by : beside) {
                const auto x = load(e->dx, by);
                const auto y = load(e->dy, by);
                const auto apart = hn::Max(hn::Abs(hn::Sub(x, hereX)), hn::Abs(hn::Sub(y, hereY)));
                const auto share = hn::IfThenElseZero(hn::Le(apart, far), pull);
                weight = hn::Add(weight, share);
                sumX = hn::MulAdd(share, x, sumX);
                sumY = hn::MulAdd(share, y, sumY);
            }
            const auto ownX = load(e->ownX), ownY = load(e->ownY);
            const auto xy = load(e->xy);
            const auto bx = hn::MulAdd(load(e->xx), ownX, hn::MulAdd(xy, ownY, sumX));
            const auto by = hn::MulAdd(xy, ownX, hn::MulAdd(load(e->yy), ownY, sumY));
            const auto xx = hn::Add(load(e->xx), weight);
            const auto yy = hn::Add(load(e->yy), weight);
            const auto alone = hn::Eq(weight, hn::Zero(d));
            const auto determinant =
                hn::IfThenElse(alone, pull, hn::NegMulAdd(xy, xy, hn::Mul(xx, yy)));
            const auto inverse = hn::Div(hn::Set(d, 1), determinant);
            const auto x = hn::Mul(inverse, hn::NegMulAdd(xy, by, hn::Mul(yy, bx)));
            const auto y = hn::Mul(inverse, hn::NegMulAdd(xy, bx, hn::Mul(xx, by)));
            hn::StoreU(hn::IfThenElse(alone, hereX, x), d, e->dx.data() + i);
            hn::StoreU(hn::IfThenElse(alone, hereY, y), d, e->dy.data() + i);
        }
    }
}

}  // namespace
}  // namespace qoz::host::HWY_NAMESPACE
HWY_AFTER_NAMESPACE();

#if HWY_ONCE
namespace qoz::host {
namespace {

HWY_EXPORT(Measure);
HWY_EXPORT(Agree);

constexpr int kRounds = 4;

}  // namespace

// The new size is set last: if an allocation fails before that, the next call starts again.
void Evidence::reset(int newColumns, int newRows) {
    constexpr float kNowhere = 1e9F;
    columns = rows = 0;
    const int newStride = newColumns + 2 * kRim;
    const size_t cells = static_cast<size_t>(newStride) * static_cast<size_t>(newRows + 2);
    for (std::vector<float>* plane : {&ownX, &ownY, &xx, &xy, &yy})
        plane->assign(cells, 0);
    for (std::vector<float>* plane : {&dx, &dy})
        plane->assign(cells, kNowhere);
    stride = newStride;
    columns = newColumns;
    rows = newRows;
}

void SubpixelField::refine(const LumaPlane& from, const LumaPlane& to, BlockGrid* grid) {
    if (grid->columns() != mEvidence.columns || grid->rows() != mEvidence.rows)
        mEvidence.reset(grid->columns(), grid->rows());
    HWY_DYNAMIC_DISPATCH(Measure)(from, to, grid, &mEvidence);
    for (int round = 0; round < kRounds; ++round)
        HWY_DYNAMIC_DISPATCH(Agree)(&mEvidence);
}

}  // namespace qoz::host
#endif
