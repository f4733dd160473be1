// Which way the picture moves at one instant between two sources.
//
// The vectors that come in are laid over one of the two sources; a frame in between needs them laid
// over itself. So every block of the forward field is carried along its vector to where it is at
// that instant, every block of the backward field likewise from the other side, and what arrives at
// a node of an 8-pixel grid is a candidate for it, beside what its neighbours chose and no motion
// at all. The candidate along which the two sources agree best is taken: the sources themselves,
// not the vectors' word for it, decide. Where none agrees the node stands still and the sources are
// blended; where a candidate leads out of one source, the other alone is used.
#pragma once

#include "host/vppservice/Frames.h"

#include <vector>

namespace qoz::host::vppservice {

constexpr int kNodeStep = 8;  // pixels, both ways

// The `index`th of `steps` even steps from the older source to the newer.
struct Phase {
    uint32_t index;
    uint32_t steps;
};

// Where a node's pixels come from, as offsets in pixels, and how much of them from the newer
// source.
struct NodeMotion {
    static constexpr int kWhole = 64;

    int16_t olderX = 0;
    int16_t olderY = 0;
    int16_t newerX = 0;
    int16_t newerY = 0;
    int16_t newerShare = 0;  // of kWhole

    bool operator==(const NodeMotion&) const = default;
};

class MotionPlan {
  public:
    // Smaller frames have no room for a window of comparison.
    static bool canServe(FrameSize size) { return size.width >= 16 && size.height >= 16; }

    void lay(const Nv12View& older, const Nv12View& newer, const MotionFields& fields, Phase phase);

    // Node (column, row) stands on pixel (8 column, 8 row); the last ones on or past the far edges.
    const NodeMotion& at(int column, int row) const { return mNodes[nodeAt(column, row)]; }

  private:
    struct Vector {
        int16_t dx = 0;
        int16_t dy = 0;

        bool operator==(const Vector&) const = default;
    };
    struct Arrival {
        Vector vector;
        uint16_t rank = kNothing;  // lower is better
        static constexpr uint16_t kNothing = 0xFFFF;
    };
    void carry(const MotionVector* field, FrameSize source, bool forward);
    void arrive(std::vector<Arrival>* arrivals, int x, int y, Arrival arrival) const;
    void choose(int column, int row);
    uint32_t costOf(int column, int row, const NodeMotion& motion) const;
    NodeMotion along(Vector vector) const;
    size_t nodeAt(int column, int row) const {
        return static_cast<size_t>(row) * static_cast<size_t>(mColumns) +
               static_cast<size_t>(column);
    }

    Nv12View mOlder;
    Nv12View mNewer;
    Phase mPhase = {1, 2};
    int mColumns = 0;
    int mRows = 0;
    std::vector<Arrival> mForward;
    std::vector<Arrival> mBackward;
    std::vector<Vector> mVectors;  // chosen
    std::vector<NodeMotion> mNodes;
};

}  // namespace qoz::host::vppservice
