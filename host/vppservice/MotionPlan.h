// SPDX-License-Identifier: Apache-2.0
// The motion of the picture at one instant between two sources.
//
// The motion fields that the client sends belong to the blocks of the sources, but an interpolated
// frame needs motion for its own pixels. The plan therefore has a grid of nodes, 8 pixels apart,
// and chooses a vector for each node. The vectors of the forward field are carried along to the
// places that they reach at that instant, and the vectors of the backward field likewise from the
// newer source. The vectors that arrive at a node are its candidates. If none of them fits, the
// vectors chosen for neighbouring nodes and the vectors that arrive at the next ones are candidates
// too. The plan takes the candidate along which the two sources agree best: the pixels of the
// sources decide, not the fields. Unless a candidate is clearly better than no motion, the node
// does not move, and the sources are blended there.
//
// If the sources disagree along the chosen vector too, the fields decide which source shows the
// pixels. If the forward field has this motion in the older source and the backward field does not
// have it in the newer one, the area has been covered meanwhile, and only the older source shows
// it. In the opposite case it has been uncovered, and only the newer source shows it.
#pragma once

#include <vector>

#include "host/vppservice/Frames.h"
#include "host/vppservice/NodeField.h"
#include "host/vppservice/SubpixelPlanes.h"

namespace qoz::host::vppservice {

constexpr int kWholeShare = 64;  // the shares of both sources in a pixel add up to this

// An instant between two sources: step `index` of `steps` equal steps from the older to the newer
// one.
struct Phase {
    uint32_t index;
    uint32_t steps;
};

// Rows of tiles. A tile is the square between four nodes; a row of tiles lies between two rows of
// nodes.
struct TileRows {
    int first;
    int end;  // one past the last row
};

// The places in both sources from which a node's pixels are read, in quarters of a pixel relative
// to the node, and the share of the newer source. The kernels load it as one vector of eight
// numbers.
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

// The interpolator owns one and uses it for every frame, so that its memory is kept. Call take()
// for each pair of sources, begin() for each interpolated frame, and lay() for its rows from top to
// bottom. Not for use by two threads at once.
class MotionPlan {
  public:
    // Whether frames of this size can be planned. Smaller ones have no room for the window in which
    // sources are compared.
    static bool canServe(FrameSize size) { return size.width >= 16 && size.height >= 16; }

    // Reads the fields of a pair of sources. They apply to all plans until the next call.
    void take(const MotionFields& fields, FrameSize size);

    // Begins the plan of one instant. No node is chosen yet.
    void begin(Phase phase);
    // Chooses the nodes from the first row not yet chosen down to the lower edge of these tiles. If
    // the brightness changes between the sources, `older` must have been made as bright as `newer`.
    // Both have the size of the fields.
    void lay(const SubpixelPlanes& older, const SubpixelPlanes& newer, TileRows tiles);

    // The share of the newer source by time alone, of kWholeShare.
    int shareByTime() const { return static_cast<int>(kWholeShare * mPhase.index / mPhase.steps); }
    int columns() const { return mColumns; }
    int rows() const { return mRows; }
    int tileRows() const { return mRows - 1; }
    // The choice for a node. Node (column, row) is at pixel (8 column, 8 row); the last ones are at
    // the right and lower edge of the picture or beyond.
    const NodeMotion& at(int column, int row) const { return mNodes[nodeAt(column, row)]; }
    const Vector& vector(int column, int row) const { return mVectors[nodeAt(column, row)]; }

    // The arguments of the kernel that chooses nodes; defined in the source.
    struct Work;

  private:
    int olderShare() const;  // the part of a vector from the older source to this instant
    // Carries the vectors of a field to this instant.
    void carry(const NodeField& field, int share, std::vector<Arrival>* arrivals) const;
    size_t nodeAt(int column, int row) const {
        return static_cast<size_t>(row) * static_cast<size_t>(mColumns) +
               static_cast<size_t>(column);
    }

    Phase mPhase = {1, 2};
    int mColumns = 0;
    int mRows = 0;
    int mLaid = 0;  // number of rows of nodes that are chosen
    NodeField mForwardField;
    NodeField mBackwardField;
    std::vector<Arrival> mForward;   // the forward field, carried to this instant
    std::vector<Arrival> mBackward;  // likewise
    std::vector<Vector> mVectors;    // the chosen vectors
    std::vector<Vector> mAgreed;     // see Work::agreed
    std::vector<uint32_t> mCosts;    // differences along the chosen vectors
    std::vector<NodeMotion> mNodes;
};

}  // namespace qoz::host::vppservice
