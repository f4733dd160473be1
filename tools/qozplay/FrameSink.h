// Where finished frames go.
#pragma once

#include "Basics.h"

namespace qozplay {

// Luma, then interleaved U and V at half the size, both with rows of `stride` bytes. An odd last
// row or column has its own chroma.
struct Nv12View {
    const uint8_t* luma;
    const uint8_t* chroma;
    int stride;
    Size size;
};

struct FinishedFrame {
    uint64_t timestamp;  // microseconds
    bool real;           // a source frame itself, not one made in between
    Nv12View picture;
};

class FrameSink {
  public:
    virtual ~FrameSink() = default;

    // Uses the picture within the call. False: no more frames are wanted. Throws SessionFailed.
    virtual bool take(const FinishedFrame& frame) = 0;
};

}  // namespace qozplay
