// SPDX-License-Identifier: Apache-2.0
#include "host/vppservice/MotionPlan.h"

#include <algorithm>
#include <cstdlib>

namespace qoz::host::vppservice {
namespace {

constexpr int kBlock = static_cast<int>(kMotionBlock);

// The window compared around a node: every second row of 16 x 16 pixels.
constexpr int kWindow = 16;
constexpr uint32_t kSamples = kWindow * kWindow / 2;

// Costs are sums over the window; these are mean differences of luma.
constexpr uint32_t kAgreeing = 1 * kSamples;     // good enough to look no further
constexpr uint32_t kDisagreeing = 4 * kSamples;  // one of the sources may show something else

// What motion must spare against standing still: an eighth, and this.
constexpr uint32_t kMovesFor = kSamples / 4;

// What a likeness but for brightness is worth less than a full one.
constexpr uint32_t kShapesOnly = 1 * kSamples;

constexpr int kSameLayer = 13;   // eighths of a pixel: less apart is one motion
constexpr int kSameMotion = 24;  // likewise, where the fields are compared

constexpr uint16_t kFlatTexture = 2;   // below, the vector was a guess
constexpr uint16_t kSureTexture = 4;   // from here on, standing still would show
constexpr uint16_t kFlatHandicap = 8;  // in the rank of such a vector

// Shares of a vector are counted in this.
constexpr int kPartUnit = 1 << 14;

// `value` * index / steps, to the nearest; halves away from 0, so that both ways from the middle
// are equally far.
int scaled(int value, uint32_t index, uint32_t steps) {
    const int doubled = 2 * value * static_cast<int>(index);
    const int whole = static_cast<int>(steps);
    return (doubled + (doubled < 0 ? -whole : whole)) / (2 * whole);
}

int nodesOver(int pixels) {
    return (pixels + kNodeStep - 1) / kNodeStep + 1;
}

int distance(Vector a, Vector b) {
    return std::max(std::abs(a.dx - b.dx), std::abs(a.dy - b.dy));
}

}  // namespace

Vector MotionPlan::Field::at(int column, int row) const {
    const MotionVector& told =
        vectors[std::clamp(row, 0, rows - 1) * columns + std::clamp(column, 0, columns - 1)];
    return {static_cast<int16_t>(sign * told.dx), static_cast<int16_t>(sign * told.dy)};
}

void MotionPlan::lay(const SubpixelPlanes& older, const SubpixelPlanes& newer,
                     const MotionFields& fields, Phase phase) {
    mOlder = &older;
    mNewer = &newer;
    mPhase = phase;
    constexpr int kToQuarters = kMotionUnit / 4;
    const auto partOf = [&](uint32_t steps) {
        const uint32_t whole = phase.steps * kToQuarters;
        return static_cast<int>((steps * kPartUnit + whole / 2) / whole);
    };
    mOlderPart = partOf(phase.index);
    mNewerPart = partOf(phase.steps - phase.index);
    mColumns = nodesOver(newer.width());
    mRows = nodesOver(newer.height());
    const auto nodes = static_cast<size_t>(mColumns) * static_cast<size_t>(mRows);
    mForward.assign(nodes, {});
    mBackward.assign(nodes, {});
    mVectors.assign(nodes, {});
    mNodes.resize(nodes);
    const auto across = static_cast<int>(fieldWidth(static_cast<uint32_t>(newer.width())));
    const auto down = static_cast<int>(fieldHeight(static_cast<uint32_t>(newer.height())));
    mForwardField = {fields.forward, 1, across, down};
    mBackwardField = {fields.backward, -1, across, down};
    carry(mForwardField, &mForward);
    carry(mBackwardField, &mBackward);
    for (int row = 0; row < mRows; ++row) {
        for (int column = 0; column < mColumns; ++column) {
            choose(column, row);
        }
    }
}

void MotionPlan::carry(const Field& field, std::vector<Arrival>* arrivals) const {
    const int lastX = mNewer->width() - kBlock;
    const int lastY = mNewer->height() - kBlock;
    const uint32_t steps = field.sign > 0 ? mPhase.index : mPhase.steps - mPhase.index;
    const MotionVector* told = field.vectors;
    for (int row = 0; row < field.rows; ++row) {
        for (int column = 0; column < field.columns; ++column, ++told) {
            Arrival arrival;
            arrival.vector = field.at(column, row);
            arrival.rank = told->error;
            if (told->texture < kFlatTexture) arrival.rank += kFlatHandicap;
            arrival.sure =
                told->texture >= kSureTexture && distance(arrival.vector, {}) >= kMotionUnit;
            arrive(
                arrivals,
                std::min(column * kBlock, lastX) +
                    scaled(told->dx, steps, mPhase.steps * kMotionUnit),
                std::min(row * kBlock, lastY) + scaled(told->dy, steps, mPhase.steps * kMotionUnit),
                arrival);
        }
    }
}

// The block now covers 16 x 16 pixels from (x, y): two nodes each way.
void MotionPlan::arrive(std::vector<Arrival>* arrivals, int x, int y, Arrival arrival) const {
    const auto nodeFrom = [](int pixel) { return (pixel + kNodeStep - 1) >> 3; };
    const int endColumn = std::min(nodeFrom(x + kBlock), mColumns);
    const int endRow = std::min(nodeFrom(y + kBlock), mRows);
    for (int row = std::max(nodeFrom(y), 0); row < endRow; ++row) {
        for (int column = std::max(nodeFrom(x), 0); column < endColumn; ++column) {
            Arrival& there = (*arrivals)[nodeAt(column, row)];
            if (arrival.rank < there.rank) there = arrival;
        }
    }
}

// The field at a pixel: linear between the centres of blocks, of those that move about as `near`.
Vector MotionPlan::between(const Field& field, int x, int y, Vector near) {
    const int left = (x - kBlock / 2) >> 4;
    const int top = (y - kBlock / 2) >> 4;
    const int u = x - kBlock / 2 - left * kBlock;
    const int v = y - kBlock / 2 - top * kBlock;
    const Vector around[4] = {field.at(left, top), field.at(left + 1, top), field.at(left, top + 1),
                              field.at(left + 1, top + 1)};
    if (std::all_of(around, around + 4, [near](Vector one) { return one == near; })) return near;
    int sumX = 0, sumY = 0, sum = 0;
    for (int i = 0; i < 4; ++i) {
        const Vector one = around[i];
        if (distance(one, near) > kSameLayer) continue;
        const int weight = ((i & 1) != 0 ? u : kBlock - u) * (i > 1 ? v : kBlock - v);
        sumX += weight * one.dx;
        sumY += weight * one.dy;
        sum += weight;
    }
    if (sum == 0) return near;
    const auto mean = [sum](int of) {
        return static_cast<int16_t>((2 * of + (of < 0 ? -sum : sum)) / (2 * sum));
    };
    return {mean(sumX), mean(sumY)};
}

// `vector` is a block's; this is what the field says for the node's own pixels.
Vector MotionPlan::fine(const Field& field, int column, int row, Vector vector) const {
    const int back = field.sign > 0 ? -static_cast<int>(mPhase.index)
                                    : static_cast<int>(mPhase.steps - mPhase.index);
    const int whole = static_cast<int>(mPhase.steps) * kMotionUnit;
    return between(field, column * kNodeStep + vector.dx * back / whole,
                   row * kNodeStep + vector.dy * back / whole, vector);
}

// The vector of what has arrived at a node, made fine for this one; false: nothing has.
bool MotionPlan::arrived(const Field& field, const std::vector<Arrival>& arrivals, Place node,
                         Place from, Vector* vector) const {
    if (from.column >= mColumns || from.row >= mRows) return false;
    const Arrival& arrival = arrivals[nodeAt(from.column, from.row)];
    if (arrival.rank == Arrival::kNothing) return false;
    *vector = fine(field, node.column, node.row, arrival.vector);
    return true;
}

// Where both fields say the same, their mean is all there is to try as long as it fits.
void MotionPlan::choose(int column, int row) {
    Best best{column, row, *this};
    Vector forward, backward;
    const Place here = {column, row};
    const bool there = arrived(mForwardField, mForward, here, here, &forward);
    const bool sure = mForward[nodeAt(column, row)].sure;
    const bool back = arrived(mBackwardField, mBackward, here, here, &backward);
    if (there && back && distance(forward, backward) < kMotionUnit) {
        best.offer({static_cast<int16_t>((forward.dx + backward.dx) / 2),
                    static_cast<int16_t>((forward.dy + backward.dy) / 2)});
    } else {
        if (there) best.offer(forward);
        if (back) best.offer(backward);
    }
    if (best.cost > kAgreeing) {
        if (column > 0) best.offer(vector(column - 1, row));
        if (row > 0) best.offer(vector(column, row - 1));
        Vector beside;
        for (const Place from : {Place{column + 1, row}, Place{column, row + 1}}) {
            if (arrived(mForwardField, mForward, here, from, &beside)) best.offer(beside);
        }
    }
    if (best.cost > kAgreeing || !sure) best.orStill();
    const size_t node = nodeAt(column, row);
    mVectors[node] = best.vector;
    mNodes[node] = along(best.vector);
    mNodes[node].newerShare = shareAt(column, row, best.vector, best.cost);
}

void MotionPlan::Best::offer(Vector candidate) {
    if (cost <= kAgreeing || (cost != UINT32_MAX && candidate == vector)) return;
    const uint32_t other = plan.costOf(column, row, plan.along(candidate));
    if (other >= cost) return;
    cost = other;
    vector = candidate;
}

// No motion wins unless moving explains clearly more.
void MotionPlan::Best::orStill() {
    if (cost <= kAgreeing && vector == Vector{}) return;
    uint32_t still = plan.costOf(column, row, {});
    if (cost > kDisagreeing) {
        still =
            std::min(still, plan.costOf(column, row, {}, windowDifferenceOfShapes) + kShapesOnly);
    }
    if (cost < still / 2 && cost + kMovesFor < still) return;
    vector = {};
    cost = still;
}

int16_t MotionPlan::shareAt(int column, int row, Vector vector, uint32_t cost) const {
    const auto byTime = static_cast<int16_t>(kWholeShare * mPhase.index / mPhase.steps);
    if (cost < kDisagreeing) return byTime;
    const auto meets = [&](const Field& field) {
        const int back = field.sign > 0 ? -static_cast<int>(mPhase.index)
                                        : static_cast<int>(mPhase.steps - mPhase.index);
        const int whole = static_cast<int>(mPhase.steps) * kMotionUnit;
        const int x = column * kNodeStep + vector.dx * back / whole;
        const int y = row * kNodeStep + vector.dy * back / whole;
        return distance(field.at(x >> 4, y >> 4), vector) <= kSameMotion;
    };
    const bool inOlder = meets(mForwardField);
    const bool inNewer = meets(mBackwardField);
    if (inOlder == inNewer) return byTime;
    return inOlder ? int16_t{0} : static_cast<int16_t>(kWholeShare);
}

// How far the sources differ along the motion. Near the picture's edges the window moves inwards
// until both of them hold it.
uint32_t MotionPlan::costOf(int column, int row, const NodeMotion& motion, Measure measure) const {
    const auto place = [](int node, int older, int newer, int last, int* at) {
        const int low = std::max({0, -older, -newer});
        const int high = std::min({last, last - older, last - newer});
        *at = std::clamp(node * kNodeStep - kWindow / 2, low, std::max(low, high));
        return low <= high;
    };
    int x = 0;
    int y = 0;
    const int lastX = mNewer->width() - kWindow;
    const int lastY = mNewer->height() - kWindow;
    if (!place(column, motion.olderX >> 2, motion.newerX >> 2, lastX, &x)) return UINT32_MAX;
    if (!place(row, motion.olderY >> 2, motion.newerY >> 2, lastY, &y)) return UINT32_MAX;
    return measure(mOlder->at({4 * x + motion.olderX, 4 * y + motion.olderY}),
                   mNewer->at({4 * x + motion.newerX, 4 * y + motion.newerY}), mNewer->stride());
}

NodeMotion MotionPlan::along(Vector vector) const {
    // Halves away from 0, so that both ways from the middle are equally far.
    const auto part = [](int value, int share) {
        const int size = (std::abs(value) * share + kPartUnit / 2) / kPartUnit;
        return static_cast<int16_t>(value < 0 ? -size : size);
    };
    NodeMotion motion;
    motion.olderX = part(-vector.dx, mOlderPart);
    motion.olderY = part(-vector.dy, mOlderPart);
    motion.newerX = part(vector.dx, mNewerPart);
    motion.newerY = part(vector.dy, mNewerPart);
    return motion;
}

}  // namespace qoz::host::vppservice
