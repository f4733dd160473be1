// SPDX-License-Identifier: Apache-2.0
#include "host/vppservice/MotionPlan.h"

#include <algorithm>
#include <cstring>
#include <utility>

#undef HWY_TARGET_INCLUDE
#define HWY_TARGET_INCLUDE "host/vppservice/MotionPlan.cpp"
#include <hwy/foreach_target.h>  // compiles the rest of this file for each target
#include <hwy/highway.h>
// This follows it because it is compiled for each target too.
#include "host/vppservice/Window-inl.h"

#ifndef QOZ_HOST_VPPSERVICE_MOTION_PLAN_ONCE
#define QOZ_HOST_VPPSERVICE_MOTION_PLAN_ONCE
namespace qoz::host::vppservice {

// The unit for parts of a vector.
constexpr int kPartUnit = 1 << 14;

// Returns the number of nodes that `share` of a vector component leads away, rounded to the
// nearest. `eighths` is the component in eighths of a pixel, `share` is in units of 1 / kPartUnit.
constexpr int nodesAway(int eighths, int share) {
    constexpr int kShift = 14 + 6;
    static_assert(kNodeStep * kMotionUnit * kPartUnit == 1 << kShift);
    return (eighths * share + (1 << (kShift - 1))) >> kShift;
}

// The arguments of the kernel. The pointers are to planes of `columns` x `rows` nodes.
struct MotionPlan::Work {
    const SubpixelPlanes& older;
    const SubpixelPlanes& newer;
    const NodeField& forwardField;
    const NodeField& backwardField;
    const Arrival* forward;
    const Arrival* backward;
    int columns;
    int rows;
    int first;       // first row to choose
    int end;         // one past the last row
    int olderShare;  // the part of a vector from the older source to the node, of kPartUnit
    int newerShare;  // the part from the node to the newer source
    int16_t byTime;  // the newer source's share by time, of kWholeShare
    Vector* vectors;
    Vector* agreed;  // for every second node of every second row: its vector if the sources agree
    uint32_t* costs;
    NodeMotion* nodes;

    size_t at(int column, int row) const {
        return static_cast<size_t>(row) * static_cast<size_t>(columns) +
               static_cast<size_t>(column);
    }
};

}  // namespace qoz::host::vppservice
#endif

HWY_BEFORE_NAMESPACE();
namespace qoz::host::vppservice::HWY_NAMESPACE {
namespace {

// Limits for costs, which are sums of differences over the window, given as mean differences of
// luma.
constexpr uint32_t kAgreeing = 3 * kWindowSamples / 2;  // good enough to end the search
constexpr uint32_t kDisagreeing = 4 * kWindowSamples;   // one source may not show the place

// A vector must save this, and half of the cost of no motion, to be chosen; if both fields are sure
// of motion there, a quarter of that cost suffices.
constexpr uint32_t kMovesFor = kWindowSamples / 4;

// The penalty for windows that are alike only after their mean brightness is made equal.
constexpr uint32_t kShapesOnly = 1 * kWindowSamples;

// In eighths of a pixel. A candidate that is no further from another is not compared again, because
// both lead to almost the same quarter pixels.
constexpr int kOneStep = 1;

constexpr Vector kNowhere = {INT16_MAX / 2, 0};  // differs from every vector

// In eighths of a pixel. A field has the chosen motion if its vector differs from the chosen one by
// no more than this.
constexpr int kSameMotion = 24;

// Chooses the vectors of the nodes in a range of rows.
class Chooser {
  public:
    explicit Chooser(const MotionPlan::Work& work)
        : mWork(work),
          mStride(work.newer.stride()),
          mLastX(work.newer.width() - kWindow),
          mLastY(work.newer.height() - kWindow),
          mShares{work.olderShare, work.olderShare, work.newerShare, work.newerShare} {}

    // In every second row, every second node is chosen first; their windows cover the picture.
    // Another node needs no comparison if its neighbours among these have all found a vector along
    // which the sources agree, and the fields give it about the same vector.
    HWY_INLINE void chooseRows() {
        for (int row = mWork.first; row < mWork.end; ++row) {
            if (row == 0) chooseSecond(0);
            if (row % 2 != 0 && row + 1 < mWork.rows) chooseSecond(row + 1);
            for (int column = row % 2 == 0 ? 1 : 0; column < mWork.columns;
                 column += row % 2 == 0 ? 2 : 1) {
                if (!follow(column, row)) choose(column, row, 1);
            }
        }
    }

  private:
    static constexpr int kMostOffered = 6;

    // The candidates that a node has compared, and the best of them.
    struct Best {
        int column;
        int row;
        Vector vector = {};
        uint32_t cost = UINT32_MAX;
        bool moving = false;  // both fields are sure of motion there
        int offered = 0;
        Vector known[kMostOffered] = {};
    };

    // Chooses every second node of a row and notes whether the sources agree there.
    HWY_INLINE void chooseSecond(int row) {
        for (int column = 0; column < mWork.columns; column += 2) {
            choose(column, row, 2);
            const size_t node = mWork.at(column, row);
            const bool agrees = mWork.costs[node] <= kAgreeing;
            mWork.agreed[node] = agrees ? mWork.vectors[node] : kNowhere;
        }
    }

    // Splits a vector, in eighths of a pixel, into its parts to both sources in quarters of a
    // pixel. Halves are rounded away from 0, so that both parts are equally long in the middle of
    // an interval.
    HWY_INLINE NodeMotion along(Vector vector) const {
        const hn::FixedTag<int32_t, 4> d;
        const hn::Rebind<int16_t, decltype(d)> half;
        const auto x = hn::Set(d, vector.dx);
        const auto whole = hn::OddEven(hn::Set(d, vector.dy), x);
        const auto size = hn::Mul(hn::Abs(whole), hn::Load(d, mShares));
        const auto quarters = hn::ShiftRight<15>(hn::Add(size, hn::Set(d, kPartUnit)));
        static_assert(2 * kPartUnit == 1 << 15);
        // The part to the older source points backwards.
        const auto ahead = hn::Xor(whole, hn::Load(d, kBehind));
        const auto parts = hn::IfThenElse(hn::Lt(ahead, hn::Zero(d)), hn::Neg(quarters), quarters);
        NodeMotion motion;
        hn::StoreU(hn::DemoteTo(half, parts), half, &motion.olderX);
        motion.acrossX = static_cast<int16_t>(motion.newerX - motion.olderX);
        motion.acrossY = static_cast<int16_t>(motion.newerY - motion.olderY);
        return motion;
    }

    // Stores the choice for a node.
    HWY_INLINE void set(int column, int row, Vector vector, uint32_t cost, int16_t share) {
        const size_t node = mWork.at(column, row);
        mWork.vectors[node] = vector;
        mWork.costs[node] = cost;
        mWork.nodes[node] = along(vector);
        mWork.nodes[node].newerShare = share;
    }

    // Sets `mean` to the mean of the vectors that both fields give a node. Returns false if one of
    // them gives none or if they differ by a pixel or more.
    HWY_INLINE bool bothSay(size_t node, Vector* mean) const {
        const Arrival& forward = mWork.forward[node];
        const Arrival& backward = mWork.backward[node];
        if (forward.rank == Arrival::kNothing || backward.rank == Arrival::kNothing) return false;
        if (distance(forward.vector, backward.vector) >= kMotionUnit) return false;
        *mean = {static_cast<int16_t>((forward.vector.dx + backward.vector.dx) / 2),
                 static_cast<int16_t>((forward.vector.dy + backward.vector.dy) / 2)};
        return true;
    }

    // Gives a node the vector of both fields without a comparison, if the chosen nodes around it
    // move likewise. Otherwise returns false.
    HWY_INLINE bool follow(int column, int row) {
        Vector vector;
        if (!bothSay(mWork.at(column, row), &vector)) return false;
        const int left = column & ~1, top = row & ~1;
        const int right = std::min(left + 2 * (column & 1), (mWork.columns - 1) & ~1);
        const int bottom = std::min(top + 2 * (row & 1), (mWork.rows - 1) & ~1);
        const Vector around[] = {
            mWork.agreed[mWork.at(left, top)], mWork.agreed[mWork.at(right, top)],
            mWork.agreed[mWork.at(left, bottom)], mWork.agreed[mWork.at(right, bottom)]};
        const hn::FixedTag<int16_t, 8> d;
        const hn::Repartition<uint32_t, decltype(d)> pairs;
        uint32_t own;
        std::memcpy(&own, &vector, sizeof(own));
        const auto apart =
            hn::Abs(hn::Sub(hn::LoadU(d, &around[0].dx), hn::BitCast(d, hn::Set(pairs, own))));
        if (!hn::AllTrue(d, hn::Lt(apart, hn::Set(d, kMotionUnit)))) return false;
        // If the nodes around do not move, this one does not either.
        if (around[0] == Vector{}) vector = {};
        set(column, row, vector, kAgreeing, mWork.byTime);
        return true;
    }

    // Chooses the vector of one node. If both fields give about the same vector, their mean is the
    // only candidate as long as it fits. `beside` is the distance, in nodes, to the neighbours that
    // are chosen already.
    HWY_INLINE void choose(int column, int row, int beside) {
        Best best{column, row};
        const size_t node = mWork.at(column, row);
        const bool sure = mWork.forward[node].sure;
        best.moving = sure && mWork.backward[node].sure;
        Vector both;
        if (bothSay(node, &both)) {
            offer(both, &best);
        } else {
            offerArrival(mWork.forward[node], &best);
            offerArrival(mWork.backward[node], &best);
        }
        if (best.cost > kAgreeing) {
            if (column >= beside) offer(mWork.vectors[mWork.at(column - beside, row)], &best);
            if (row >= beside) offer(mWork.vectors[mWork.at(column, row - beside)], &best);
            if (column + 1 < mWork.columns) offerArrival(mWork.forward[node + 1], &best);
            if (row + 1 < mWork.rows) offerArrival(mWork.forward[mWork.at(column, row + 1)], &best);
        }
        if (best.cost > kAgreeing || !sure) orStill(&best);
        set(column, row, best.vector, best.cost, shareAt(best));
    }

    HWY_INLINE void offerArrival(const Arrival& arrival, Best* best) const {
        if (arrival.rank != Arrival::kNothing) offer(arrival.vector, best);
    }

    // Compares a candidate, unless the best one fits already or a similar one has been compared.
    void offer(Vector candidate, Best* best) const {
        if (best->cost <= kAgreeing) return;
        for (int i = 0; i < best->offered; ++i) {
            if (distance(candidate, best->known[i]) <= kOneStep) return;
        }
        if (best->offered < kMostOffered) best->known[best->offered++] = candidate;
        const uint32_t other = costOf(best->column, best->row, along(candidate), best->cost);
        if (other >= best->cost) return;
        best->cost = other;
        best->vector = candidate;
    }

    // Takes no motion unless the best vector is clearly better, see kMovesFor.
    HWY_INLINE void orStill(Best* best) const {
        if (best->cost <= kAgreeing && best->vector == Vector{}) return;
        uint32_t still = costOf(best->column, best->row, {}, UINT32_MAX);
        if (best->cost > kDisagreeing) {
            still = std::min(still, costOfShapes(best->column, best->row) + kShapesOnly);
        }
        const uint32_t most = best->moving ? still / 4 * 3 : still / 2;
        if (best->cost < most && best->cost + kMovesFor < still) return;
        best->vector = {};
        best->cost = still;
    }

    // Returns the share of the newer source. It goes by time if the sources agree; if they do not,
    // the fields tell which source shows the place.
    HWY_INLINE int16_t shareAt(const Best& best) const {
        if (best.cost < kDisagreeing) return mWork.byTime;
        const auto meets = [&](const NodeField& field, int share) {
            const auto node = [&](int at, int by) { return at + nodesAway(by, share); };
            const Vector there =
                field.at(node(best.column, best.vector.dx), node(best.row, best.vector.dy)).vector;
            return distance(there, best.vector) <= kSameMotion;
        };
        const bool inOlder = meets(mWork.forwardField, -mWork.olderShare);
        const bool inNewer = meets(mWork.backwardField, mWork.newerShare);
        if (inOlder == inNewer) return mWork.byTime;
        return inOlder ? int16_t{0} : static_cast<int16_t>(kWholeShare);
    }

    // Returns the difference of the sources along a motion. A result of `limit` or more only says
    // that the limit was reached. At the picture's edges the window moves inwards until it lies
    // within both sources; if that is impossible, the cost is infinite.
    HWY_NOINLINE uint32_t costOf(int column, int row, const NodeMotion& motion,
                                 uint32_t limit) const {
        const auto place = [](int node, int older, int newer, int last, int* at) {
            const int low = std::max({0, -older, -newer});
            const int high = std::min({last, last - older, last - newer});
            *at = std::clamp(node * kNodeStep - kWindow / 2, low, std::max(low, high));
            return low <= high;
        };
        int x = 0;
        int y = 0;
        if (!place(column, motion.olderX >> 2, motion.newerX >> 2, mLastX, &x)) return UINT32_MAX;
        if (!place(row, motion.olderY >> 2, motion.newerY >> 2, mLastY, &y)) return UINT32_MAX;
        const PixelPair older = mWork.older.at({4 * x + motion.olderX, 4 * y + motion.olderY});
        const PixelPair newer = mWork.newer.at({4 * x + motion.newerX, 4 * y + motion.newerY});
        return windowDifference(older, newer, mStride, limit);
    }

    // Returns the difference of the sources without motion, after making the windows equally
    // bright.
    HWY_NOINLINE uint32_t costOfShapes(int column, int row) const {
        const int x = std::clamp(column * kNodeStep - kWindow / 2, 0, mLastX);
        const int y = std::clamp(row * kNodeStep - kWindow / 2, 0, mLastY);
        const QuarterPlace place = {4 * x, 4 * y};
        return windowDifferenceOfShapes(mWork.older.at(place), mWork.newer.at(place), mStride);
    }

    const MotionPlan::Work& mWork;
    const ptrdiff_t mStride;
    const int mLastX;
    const int mLastY;
    // The parts of a vector to both sources, for x and y of the older and of the newer one, and the
    // signs of these parts.
    HWY_ALIGN const int32_t mShares[4];
    HWY_ALIGN static constexpr int32_t kBehind[4] = {-1, -1, 0, 0};
};

void Choose(const MotionPlan::Work& work) {
    Chooser(work).chooseRows();
}

}  // namespace
}  // namespace qoz::host::vppservice::HWY_NAMESPACE
HWY_AFTER_NAMESPACE();

#if HWY_ONCE
namespace qoz::host::vppservice {
namespace {

HWY_EXPORT(Choose);

}  // namespace

void MotionPlan::take(const MotionFields& fields, FrameSize size) {
    mForwardField.read(fields.forward, 1, size);
    mBackwardField.read(fields.backward, -1, size);
}

// The forward field is carried from the older source to this instant. The backward field is carried
// from the newer source, against its vectors, which lead from the older source to the newer one.
void MotionPlan::begin(Phase phase) {
    mPhase = phase;
    mColumns = mForwardField.columns();
    mRows = mForwardField.rows();
    mLaid = 0;
    const auto nodes = static_cast<size_t>(mColumns) * static_cast<size_t>(mRows);
    mVectors.resize(nodes);
    mAgreed.resize(nodes);
    mCosts.resize(nodes);
    mNodes.resize(nodes);
    carry(mForwardField, olderShare(), &mForward);
    carry(mBackwardField, olderShare() - kPartUnit, &mBackward);
}

int MotionPlan::olderShare() const {
    return static_cast<int>((mPhase.index * kPartUnit + mPhase.steps / 2) / mPhase.steps);
}

void MotionPlan::lay(const SubpixelPlanes& older, const SubpixelPlanes& newer, TileRows tiles) {
    const int first = std::exchange(mLaid, tiles.end + 1);
    HWY_DYNAMIC_DISPATCH(Choose)
    ({.older = older,
      .newer = newer,
      .forwardField = mForwardField,
      .backwardField = mBackwardField,
      .forward = mForward.data(),
      .backward = mBackward.data(),
      .columns = mColumns,
      .rows = mRows,
      .first = first,
      .end = mLaid,
      .olderShare = olderShare(),
      .newerShare = kPartUnit - olderShare(),
      .byTime = static_cast<int16_t>(shareByTime()),
      .vectors = mVectors.data(),
      .agreed = mAgreed.data(),
      .costs = mCosts.data(),
      .nodes = mNodes.data()});
}

// Each vector goes to the node nearest to the place that `share` of it leads to. If several arrive
// at one node, the one with the best rank stays.
void MotionPlan::carry(const NodeField& field, int share, std::vector<Arrival>* arrivals) const {
    arrivals->assign(static_cast<size_t>(mColumns) * static_cast<size_t>(mRows), {});
    for (int row = 0; row < mRows; ++row) {
        for (int column = 0; column < mColumns; ++column) {
            const Arrival& cell = field.at(column, row);
            const int toColumn = column + nodesAway(cell.vector.dx, share);
            const int toRow = row + nodesAway(cell.vector.dy, share);
            if (toColumn < 0 || toRow < 0 || toColumn >= mColumns || toRow >= mRows) continue;
            Arrival& there = (*arrivals)[nodeAt(toColumn, toRow)];
            if (cell.rank < there.rank) there = cell;
        }
    }
}

}  // namespace qoz::host::vppservice
#endif
