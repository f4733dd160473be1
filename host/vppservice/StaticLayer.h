// SPDX-License-Identifier: Apache-2.0
// What stands still over a picture that moves: thin lines and letters of a display.
//
// A pixel belongs to it that is the same in both sources where it is, and that the motion around it
// explains in neither; so many of its neighbours do too that it is no accident. A frame in between
// shows it as it is, however thin it is. And what the motion fetches from behind it in one source
// is taken from the other, where it is not covered.
#pragma once

#include <vector>

#include "host/vppservice/MotionPlan.h"

namespace qoz::host::vppservice {

class StaticLayer {
  public:
    // Begins a frame of this size.
    void begin(FrameSize size);
    // Looks for suspects in these tiles, the nodes around which are chosen. `older` is as bright as
    // `newer`, as the plan was laid.
    void suspect(const SubpixelPlanes& older, const SubpixelPlanes& newer, const MotionPlan& plan,
                 TileRows tiles);
    // Of all tiles; puts right what has been written along the plan.
    void restore(const SubpixelPlanes& older, const SubpixelPlanes& newer, const MotionPlan& plan,
                 const Nv12Canvas& to);

    // What the search for suspects works on; see the source.
    struct Search;

  private:
    static constexpr int kRim = 2;  // pixels around the mask, so that neighbours may be looked at

    void resize(int width, int height);
    void forget();
    void confirmAll();
    void confirm(int column, int row);
    void uncover(const SubpixelPlanes& older, const SubpixelPlanes& newer, const NodeMotion& node,
                 int column, int row, const Nv12Canvas& to) const;
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
    std::vector<uint8_t> mSuspects;  // 0 or 255 for each pixel
    std::vector<uint8_t> mMask;
    std::vector<uint8_t> mTiles;         // 1: the tile has some of the mask
    std::vector<uint8_t> mAround;        // 1: it has, or one of the eight around it
    std::vector<uint8_t> mSuspectTiles;  // 1: it has suspects, as long as mSuspected
    bool mSuspected = false;
    bool mAny = false;
};

}  // namespace qoz::host::vppservice
