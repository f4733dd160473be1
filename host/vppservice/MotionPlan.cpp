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
constexpr uint32_t kAgreeing = 1 * kSamples;      // good enough to look no further
constexpr uint32_t kDisagreeing = 24 * kSamples;  // beyond this no motion is believed

constexpr uint16_t kFlatTexture = 2;   // below, the vector was a guess
constexpr uint16_t kFlatHandicap = 8;  // in the rank of such a vector

uint32_t difference(const uint8_t* a, const uint8_t* b, size_t stride) {
    uint32_t sum = 0;
    for (int row = 0; row < kWindow; row += 2) {
        for (int i = 0; i < kWindow; ++i) {
            sum += static_cast<uint32_t>(std::abs(a[i] - b[i]));
        }
        a += 2 * stride;
        b += 2 * stride;
    }
    return sum;
}

// `value` * index / steps, to the nearest.
int scaled(int value, uint32_t index, uint32_t steps) {
    const int doubled = 2 * value * static_cast<int>(index);
    const int whole = static_cast<int>(steps);
    return (doubled + (doubled < 0 ? -whole : whole)) / (2 * whole);
}

int nodesOver(uint32_t pixels) {
    return static_cast<int>((pixels + kNodeStep - 1) / kNodeStep) + 1;
}

}  // namespace

void MotionPlan::lay(const Nv12View& older, const Nv12View& newer, const MotionFields& fields,
                     Phase phase) {
    mOlder = older;
    mNewer = newer;
    mPhase = phase;
    mColumns = nodesOver(newer.size.width);
    mRows = nodesOver(newer.size.height);
    const auto nodes = static_cast<size_t>(mColumns) * mRows;
    mForward.assign(nodes, {});
    mBackward.assign(nodes, {});
    mVectors.assign(nodes, {});
    mNodes.resize(nodes);
    carry(fields.forward, newer.size, true);
    carry(fields.backward, newer.size, false);
    for (int row = 0; row < mRows; ++row) {
        for (int column = 0; column < mColumns; ++column) {
            choose(column, row);
        }
    }
}

void MotionPlan::carry(const MotionVector* field, FrameSize source, bool forward) {
    const int across = static_cast<int>(fieldWidth(source.width));
    const int down = static_cast<int>(fieldHeight(source.height));
    const int lastX = static_cast<int>(source.width) - kBlock;
    const int lastY = static_cast<int>(source.height) - kBlock;
    const uint32_t steps = forward ? mPhase.index : mPhase.steps - mPhase.index;
    for (int row = 0; row < down; ++row) {
        for (int column = 0; column < across; ++column) {
            const MotionVector& told = *field++;
            const int sign = forward ? 1 : -1;  // a backward vector points against time
            Arrival arrival;
            arrival.vector = {static_cast<int16_t>(sign * told.dx),
                              static_cast<int16_t>(sign * told.dy)};
            arrival.rank = told.error;
            if (told.texture < kFlatTexture) arrival.rank += kFlatHandicap;
            arrive(forward ? &mForward : &mBackward,
                   std::min(column * kBlock, lastX) + scaled(told.dx, steps, mPhase.steps),
                   std::min(row * kBlock, lastY) + scaled(told.dy, steps, mPhase.steps), arrival);
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

void MotionPlan::choose(int column, int row) {
    const size_t node = nodeAt(column, row);
    Vector candidates[7];
    int count = 0;
    const auto add = [&](Vector vector) {
        if (std::find(candidates, candidates + count, vector) == candidates + count) {
            candidates[count++] = vector;
        }
    };
    const auto addArrival = [&](const Arrival& arrival) {
        if (arrival.rank != Arrival::kNothing) add(arrival.vector);
    };
    addArrival(mForward[node]);
    addArrival(mBackward[node]);
    add({});
    if (column > 0) add(mVectors[nodeAt(column - 1, row)]);
    if (row > 0) add(mVectors[nodeAt(column, row - 1)]);
    if (column + 1 < mColumns) addArrival(mForward[nodeAt(column + 1, row)]);
    if (row + 1 < mRows) addArrival(mForward[nodeAt(column, row + 1)]);

    uint32_t least = kDisagreeing;
    for (int i = 0; i < count && least > kAgreeing; ++i) {
        const uint32_t cost = costOf(column, row, along(candidates[i]));
        if (cost >= least) continue;
        least = cost;
        mVectors[node] = candidates[i];
    }
    mNodes[node] = along(mVectors[node]);
}

// How far the sources differ along the motion. Near the picture's edges the window moves inwards
// until both of them hold it.
uint32_t MotionPlan::costOf(int column, int row, const NodeMotion& motion) const {
    const auto place = [](int node, int older, int newer, int last, int* at) {
        const int low = std::max({0, -older, -newer});
        const int high = std::min({last, last - older, last - newer});
        *at = std::clamp(node * kNodeStep - kWindow / 2, low, std::max(low, high));
        return low <= high;
    };
    int x = 0;
    int y = 0;
    const int lastX = static_cast<int>(mNewer.size.width) - kWindow;
    const int lastY = static_cast<int>(mNewer.size.height) - kWindow;
    if (!place(column, motion.olderX, motion.newerX, lastX, &x)) return kDisagreeing;
    if (!place(row, motion.olderY, motion.newerY, lastY, &y)) return kDisagreeing;
    const auto offset = [&](int dx, int dy) {
        return static_cast<size_t>(y + dy) * mNewer.stride + static_cast<size_t>(x + dx);
    };
    return difference(mOlder.luma + offset(motion.olderX, motion.olderY),
                      mNewer.luma + offset(motion.newerX, motion.newerY), mNewer.stride);
}

NodeMotion MotionPlan::along(Vector vector) const {
    NodeMotion motion;
    motion.olderX = static_cast<int16_t>(-scaled(vector.dx, mPhase.index, mPhase.steps));
    motion.olderY = static_cast<int16_t>(-scaled(vector.dy, mPhase.index, mPhase.steps));
    motion.newerX = static_cast<int16_t>(motion.olderX + vector.dx);
    motion.newerY = static_cast<int16_t>(motion.olderY + vector.dy);
    return motion;
}

}  // namespace qoz::host::vppservice
