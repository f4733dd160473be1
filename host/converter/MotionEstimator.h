// SPDX-License-Identifier: Apache-2.0
// Estimates the motion between two frames in both directions, as fields of block vectors.
#pragma once

#include <host/converter/BlockSearch.h>
#include <host/converter/BrightnessChange.h>
#include <host/converter/LumaPyramid.h>
#include <host/converter/MappedBuffer.h>
#include <host/converter/MotionField.h>
#include <host/converter/SubpixelField.h>

#include <vector>

namespace qoz::host {

// Runs the steps in turn: pyramids, change of brightness, block search, smoothing, subpixel
// measurement. It keeps the luma of the current frame, which usually is the previous frame of the
// next pair. Not for use by two threads at once.
class MotionEstimator {
  public:
    // Writes both fields, each of fieldWidth x fieldHeight vectors. The frames must have the same
    // size and format. If the brightness changes between them, the older frame's luma is first made
    // as bright as the newer's. Set `known` if `previous` is the current frame of the last call and
    // its pixels have not changed since. Throws std::bad_alloc if memory cannot be allocated.
    void estimate(const MappedBuffer& previous, const MappedBuffer& current, bool known,
                  MotionVector* forward, MotionVector* backward);

    // Releases the working memory.
    void release();

  private:
    // The luma of a frame, and the texture of each of its blocks.
    struct Frame {
        LumaPyramid luma;
        std::vector<uint8_t> textures;

        void measure();  // measures the textures
    };

    // Smooths the vectors of `grid`, measures them to fractions of a pixel, and writes the field
    // over `from` with the given change of brightness.
    void refine(const Frame& from, const Frame& to, const BrightnessChange& change, BlockGrid* grid,
                MotionVector* field);

    Frame mPrevious;
    Frame mCurrent;
    bool mWhole = false;  // mCurrent holds the complete current frame of the last call
    BlockSearch mForward;
    BlockSearch mBackward;
    SubpixelField mSubpixel;
};

}  // namespace qoz::host
