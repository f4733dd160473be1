// SPDX-License-Identifier: Apache-2.0
// Motion between two frames, both ways, as fields of block vectors.
#pragma once

#include <host/converter/BlockSearch.h>
#include <host/converter/BrightnessChange.h>
#include <host/converter/LumaPyramid.h>
#include <host/converter/MappedBuffer.h>
#include <host/converter/MotionField.h>
#include <host/converter/SubpixelField.h>

#include <vector>

namespace qoz::host {

// Keeps the current frame's luma for the next pair, whose previous frame it mostly is.
class MotionEstimator {
  public:
    // Frames of the same shape; fields of fieldWidth x fieldHeight vectors. A change of brightness
    // is undone on the older frame before anything is compared.
    // `known`: the previous frame is the last call's current one, its pixels as they were.
    void estimate(const MappedBuffer& previous, const MappedBuffer& current, bool known,
                  MotionVector* forward, MotionVector* backward);

    void release();

  private:
    // A frame's luma, and what there is to see in each of its blocks.
    struct Frame {
        LumaPyramid luma;
        std::vector<uint8_t> textures;

        void measure();  // sets the textures from the luma
    };

    // Makes the whole pixels of `grid` fine, and writes the field over `from`; `change` is told in
    // it.
    void refine(const Frame& from, const Frame& to, const BrightnessChange& change, BlockGrid* grid,
                MotionVector* field);

    Frame mPrevious;
    Frame mCurrent;
    bool mWhole = false;  // mCurrent is all of the last call's current frame
    BlockSearch mForward;
    BlockSearch mBackward;
    SubpixelField mSubpixel;
};

}  // namespace qoz::host
