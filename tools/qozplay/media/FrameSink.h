// SPDX-License-Identifier: Apache-2.0
// Where finished frames go. A session calls its sinks one after the other, on its own thread.
#pragma once

#include "qozplay/media/Colour.h"

namespace qozplay {

struct FinishedFrame {
    uint64_t timestamp;  // microseconds
    bool source;         // a source frame itself, not an interpolated one
    Nv12View picture;    // limited range
    AVColorSpace matrix = AVCOL_SPC_SMPTE170M;
};

class FrameSink {
  public:
    virtual ~FrameSink() = default;

    // Uses the picture within the call. False: no more frames are wanted. Throws SessionFailed.
    virtual bool take(const FinishedFrame& frame) = 0;
};

}  // namespace qozplay
