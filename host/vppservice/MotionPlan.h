// SPDX-License-Identifier: Apache-2.0
// Which way the picture moves at one instant between two sources.
//
// The vectors that come in are laid over one of the two sources; a frame in between needs them laid
// over itself. So every block of the forward field is carried along its vector to where it is at
// that instant, every block of the backward field likewise from the other side, and what arrives at
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

#include <vector>

#include "host/vppservice/Frames.h"
#include "host/vppservice/SubpixelPlanes.h"

namespace qoz::host::vppservice {

constexpr int kNodeStep = 8;  // pixels, both ways

// The `index`th of `steps` even steps from the older source to the newer.
struct Phase {
    uint32_t index;
    uint32_t steps;

    bool operator==(const Phase&) const = default;
};

// From the older source to the newer, in units of 1 / kMotionUnit pixel.
struct Vector {
    int16_t dx = 0;
    int16_t dy = 0;

    bool operator==(const Vector&) const = default;
};

// Where a node's pixels come from, in quarters of a pixel from its place, and how much of them from
// the newer source.
struct NodeMotion {
    int16_t olderX = 0;
    int16_t olderY = 0;
    int16_t newerX = 0;
    int16_t newerY = 0;
    int16_t newerShare = 0;  // of kWholeShare

    bool operator==(const NodeMotion&) const = default;
};

class MotionPlan {
  public:
    // Smaller frames have no room for a window of comparison.
    static bool canServe(FrameSize size) { return size.width >= 16 && size.height >= 16; }

    // `older` is as bright as `newer`: a fade has been undone.
    void lay(const SubpixelPlanes& older, const SubpixelPlanes& newer, const MotionFields& fields,
             Phase phase);

    // Of the newer source, of kWholeShare.
    int shareByTime() const { return static_cast<int>(kWholeShare * mPhase.index / mPhase.steps); }
    int columns() const { return mColumns; }
    int rows() const { return mRows; }
    // Node (column, row) stands on pixel (8 column, 8 row); the last ones on or past the far edges.
    const NodeMotion& at(int column, int row) const { return mNodes[nodeAt(column, row)]; }
    const Vector& vector(int column, int row) const { return mVectors[nodeAt(column, row)]; }

  private:
    struct Arrival {
        Vector vector;
        uint16_t rank = kNothing;  // lower is better
        bool sure = false;         // it moves, and there is something to see
        static constexpr uint16_t kNothing = 0xFFFF;
    };
    // One field, turned to lead from the older source to the newer.
    struct Field {
        const MotionVector* vectors;
        int sign;
        int columns;
        int rows;

        Vector at(int column, int row) const;
    };
    struct Place {
        int column;
        int row;
    };
    // What a node has been offered, and the best of it.
    struct Best {
        int column;
        int row;
        const MotionPlan& plan;
        Vector vector = {};
        uint32_t cost = UINT32_MAX;

        void offer(Vector candidate);
        void orStill();
    };
    void carry(const Field& field, std::vector<Arrival>* arrivals) const;
    void arrive(std::vector<Arrival>* arrivals, int x, int y, Arrival arrival) const;
    static Vector between(const Field& field, int x, int y, Vector near);
    Vector fine(const Field& field, int column, int row, Vector vector) const;
    bool arrived(const Field& field, const std::vector<Arrival>& arrivals, Place node, Place from,
                 Vector* vector) const;
    void choose(int column, int row);
    using Measure = uint32_t (*)(PixelPair a, PixelPair b, ptrdiff_t stride);
    uint32_t costOf(int column, int row, const NodeMotion& motion,
                    Measure measure = windowDifference) const;
    int16_t shareAt(int column, int row, Vector vector, uint32_t cost) const;
    NodeMotion along(Vector vector) const;
    size_t nodeAt(int column, int row) const {
        return static_cast<size_t>(row) * static_cast<size_t>(mColumns) +
               static_cast<size_t>(column);
    }

    const SubpixelPlanes* mOlder = nullptr;
    const SubpixelPlanes* mNewer = nullptr;
    Phase mPhase = {1, 2};
    int mOlderPart = 0;  // of a vector, from the node back to the older source, in quarters
    int mNewerPart = 0;
    int mColumns = 0;
    int mRows = 0;
    Field mForwardField = {};
    Field mBackwardField = {};
    std::vector<Arrival> mForward;
    std::vector<Arrival> mBackward;
    std::vector<Vector> mVectors;  // chosen
    std::vector<NodeMotion> mNodes;
};

}  // namespace qoz::host::vppservice
