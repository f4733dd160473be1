// SPDX-License-Identifier: Apache-2.0
// Which way the picture moves at one instant between two sources.
//
// The vectors that come in are laid over one of the two sources; a frame in between needs them laid
// over itself. So every cell of the forward field is carried along its vector to where it is at
// that instant, every cell of the backward field likewise from the other side, and what arrives at
// a node of an 8-pixel grid is a candidate for it, beside what its neighbours chose and no motion
// at all. The candidate along which the two sources agree best is taken: the sources themselves,
// not the vectors' word for it, decide. No motion wins where nothing is clearly better: what
// neither source explains is blended.
//
// Where the sources still disagree, the fields say which of them to believe: what moves one way in
// the older source and is not met by the backward field in the newer one has been covered
// meanwhile, and the older source alone shows it; what the newer one alone shows has been
// uncovered.
#pragma once

#include <algorithm>
#include <cstdlib>
#include <vector>

#include "host/vppservice/Frames.h"
#include "host/vppservice/SubpixelPlanes.h"

namespace qoz::host::vppservice {

constexpr int kNodeStep = 8;  // pixels, both ways

constexpr int kWholeShare = 64;  // both sources' shares of a pixel

// The `index`th of `steps` even steps from the older source to the newer.
struct Phase {
    uint32_t index;
    uint32_t steps;
};

// Rows of tiles, each between two rows of nodes.
struct TileRows {
    int first;
    int end;  // behind the last one
};

// From the older source to the newer, in units of 1 / kMotionUnit pixel.
struct Vector {
    int16_t dx = 0;
    int16_t dy = 0;

    bool operator==(const Vector&) const = default;
};

inline int distance(Vector a, Vector b) {
    return std::max(std::abs(a.dx - b.dx), std::abs(a.dy - b.dy));
}

// Where a node's pixels come from, in quarters of a pixel from its place, and how much of them from
// the newer source. It is read as one vector of eight numbers.
struct alignas(16) NodeMotion {
    int16_t olderX = 0;
    int16_t olderY = 0;
    int16_t newerX = 0;
    int16_t newerY = 0;
    int16_t acrossX = 0;  // from the older place to the newer
    int16_t acrossY = 0;
    int16_t newerShare = 0;  // of kWholeShare
    int16_t unused = 0;
};

// What a field says of one place, or what has arrived at one.
struct Arrival {
    static constexpr uint16_t kNothing = 0xFFFF;

    Vector vector;
    uint16_t rank = kNothing;  // lower is better
    bool sure = false;         // it moves, and there is something to see
};

// One field on the grid of nodes, which is finer than its blocks, turned to lead from the older
// source to the newer.
class NodeField {
  public:
    // `sign` is 1 for the forward field and -1 for the backward one.
    void read(const MotionVector* vectors, int sign, FrameSize size);

    int columns() const { return mColumns; }
    int rows() const { return mRows; }
    const Arrival& at(int column, int row) const {
        return mCells[static_cast<size_t>(std::clamp(row, 0, mRows - 1)) *
                          static_cast<size_t>(mColumns) +
                      static_cast<size_t>(std::clamp(column, 0, mColumns - 1))];
    }

  private:
    int mColumns = 0;
    int mRows = 0;
    std::vector<Arrival> mCells;
};

class MotionPlan {
  public:
    // Smaller frames have no room for a window of comparison.
    static bool canServe(FrameSize size) { return size.width >= 16 && size.height >= 16; }

    // The fields of a pair of frames, for all the plans laid from now on.
    void take(const MotionFields& fields, FrameSize size);

    // Begins the plan of one instant, of which no node is chosen yet.
    void begin(Phase phase);
    // Chooses all nodes as far as those below these tiles that are not chosen yet. `older` is as
    // bright as `newer`: a fade has been undone. Both are of the fields' size.
    void lay(const SubpixelPlanes& older, const SubpixelPlanes& newer, TileRows tiles);

    // Of the newer source, of kWholeShare.
    int shareByTime() const { return static_cast<int>(kWholeShare * mPhase.index / mPhase.steps); }
    int columns() const { return mColumns; }
    int rows() const { return mRows; }
    int tileRows() const { return mRows - 1; }
    // Node (column, row) stands on pixel (8 column, 8 row); the last ones on or past the far edges.
    const NodeMotion& at(int column, int row) const { return mNodes[nodeAt(column, row)]; }
    const Vector& vector(int column, int row) const { return mVectors[nodeAt(column, row)]; }

    // What the choice for one plan works on; see the source.
    struct Work;

  private:
    int olderShare() const;  // of a vector, from a node back to the older source
    void carry(const NodeField& field, int share, std::vector<Arrival>* arrivals) const;
    size_t nodeAt(int column, int row) const {
        return static_cast<size_t>(row) * static_cast<size_t>(mColumns) +
               static_cast<size_t>(column);
    }

    Phase mPhase = {1, 2};
    int mColumns = 0;
    int mRows = 0;
    int mLaid = 0;  // rows of nodes that are chosen
    NodeField mForwardField;
    NodeField mBackwardField;
    std::vector<Arrival> mForward;  // at this instant
    std::vector<Arrival> mBackward;
    std::vector<Vector> mVectors;  // chosen
    std::vector<Vector> mAgreed;   // see Work
    std::vector<uint32_t> mCosts;  // along these
    std::vector<NodeMotion> mNodes;
};

// Too few blocks to judge a picture by.
constexpr uint32_t kFewest = 8;

// `part` of `whole` blocks, in percent; 0 where these are too few.
constexpr uint32_t percentOf(uint32_t part, uint32_t whole) {
    return whole < kFewest ? 0 : part * 100 / whole;
}

// Share of the blocks that change between two sources which differ along their vectors more than
// half as much as in place, in percent: one number for each field.
struct Unexplained {
    uint32_t forward;
    uint32_t backward;
};
Unexplained unexplainedPercent(const MotionFields& fields, const SubpixelPlanes& older,
                               const SubpixelPlanes& newer);

}  // namespace qoz::host::vppservice
