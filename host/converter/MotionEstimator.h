// Motion between two frames, both ways, as fields of block vectors.
#pragma once

#include <host/converter/BlockSearch.h>
#include <host/converter/LumaPyramid.h>
#include <host/converter/MappedBuffer.h>
#include <host/converter/MotionField.h>

namespace qoz::host {

// Keeps nothing between two calls but memory: the owner of a frame may have rewritten it since.
class MotionEstimator {
  public:
    // Frames of the same shape; fields of fieldWidth x fieldHeight vectors.
    void estimate(const MappedBuffer& previous, const MappedBuffer& current, MotionVector* forward,
                  MotionVector* backward);

    void release();

  private:
    LumaPyramid mPrevious;
    LumaPyramid mCurrent;
    BlockSearch mSearch;
};

}  // namespace qoz::host
