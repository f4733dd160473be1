// SPDX-License-Identifier: Apache-2.0
// Restores the static layer of a picture: thin lines and letters of a display that stand still
// while the picture behind them moves. Interpolation along the motion would blur or double them.
//
// A pixel belongs to the layer if it is the same in both sources, if the motion around it explains
// it in neither source, and if enough of its neighbours are such pixels too. In the interpolated
// frame the layer's pixels are copied from their own place. Pixels whose motion leads behind the
// layer in one source are read from the other source alone.
#pragma once

#include <vector>

#include "host/vppservice/MotionPlan.h"

namespace qoz::host::vppservice {

// Call begin() for each interpolated frame, suspect() for its rows, and restore() when all rows are
// written. The interpolator owns one. Not for use by two threads at once.
class StaticLayer {
  public:
    // Begins a frame of this size.
    void begin(FrameSize size);
    // Marks the pixels of these tiles that may belong to the layer, the suspects. The nodes around
    // the tiles must be chosen. `older` must be as bright as `newer`, as for MotionPlan::lay().
    void suspect(const SubpixelPlanes& older, const SubpixelPlanes& newer, const MotionPlan& plan,
                 TileRows tiles);
    // Confirms the suspects and corrects the frame that has been written along the plan.
    void restore(const SubpixelPlanes& older, const SubpixelPlanes& newer, const MotionPlan& plan,
                 const Nv12Canvas& to);

    // The arguments of the kernel that finds suspects; defined in the source.
    struct Search;

  private:
    static constexpr int kRim = 2;  // pixels around the mask, so that every pixel has neighbours

    void resize(int width, int height);
    // Clears the masks where the last frame has set them.
    void forget();
    // Moves the suspects with enough neighbours to the mask and notes the tiles that have some.
    void confirmAll();
    // Confirms the suspects of one tile.
    void confirm(int column, int row);
    // Corrects the pixels of a moving tile that the motion reads from behind the layer.
    void uncover(const SubpixelPlanes& older, const SubpixelPlanes& newer, const NodeMotion& node,
                 int column, int row, const Nv12Canvas& to) const;
    // Copies the layer's pixels of a tile from their own place.
    void paste(const SubpixelPlanes& older, const SubpixelPlanes& newer, int share, int column,
               int row, const Nv12Canvas& to) const;
    bool touches(int x, int y) const;
    bool near(int x, int y) const;

    uint8_t* at(std::vector<uint8_t>& mask, int x, int y) const {
        return mask.data() + ptrdiff_t{y + kRim} * mStride + x + kRim;
    }
    size_t tileAt(int column, int row) const {
        return static_cast<size_t>(row) * static_cast<size_t>(mColumns) +
               static_cast<size_t>(column);
    }
    const uint8_t* at(int x, int y) const {
        return mMask.data() + ptrdiff_t{y + kRim} * mStride + x + kRim;
    }

    int mWidth = 0;
    int mHeight = 0;
    int mStride = 0;
    int mColumns = 0;  // tiles
    int mRows = 0;
    std::vector<uint8_t> mSuspects;  // pixels that may belong to the layer, 0 or 255 for each
    std::vector<uint8_t> mMask;      // pixels of the layer, likewise
    // For each tile: 1 if it has pixels of the layer (before confirmAll(), suspects).
    std::vector<uint8_t> mTiles;
    std::vector<uint8_t> mAround;  // 1: the tile or one of the eight around it has such pixels
    std::vector<uint8_t> mSuspectTiles;  // 1: the tile has suspects; valid if mSuspected
    bool mSuspected = false;
    bool mAny = false;
};

}  // namespace qoz::host::vppservice
