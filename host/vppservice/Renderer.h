// SPDX-License-Identifier: Apache-2.0
// Produces the pixels of output buffers from sources: raises detail, interpolates, and scales.
#pragma once

#include <cstdint>
#include <optional>
#include <vector>

#include "host/vppservice/ImportedBuffer.h"
#include "host/vppservice/Interpolator.h"
#include "host/vppservice/Scaler.h"

namespace qoz::host::vppservice {

// A source frame. `view` points to the pixels: those of the queued buffer, or a copy in `own` if
// they had to be changed or kept longer than the buffer.
struct Source {
    std::optional<ImportedBuffer> input;
    std::vector<uint8_t> own;
    Nv12View view;
    uint64_t timestamp = 0;  // microseconds
    uint64_t number = 0;     // counts the sources of this renderer from 1 on
};

// Renders the frames of one session. The engine owns one, and only the engine thread uses it.
class Renderer {
  public:
    // Turns a queued buffer into a source. Raises the luma detail if the output is larger than the
    // input and a smaller frame of half the output's size came along: half of the difference
    // between the source and that frame, at most 16 steps, is added to the source. This precedes
    // interpolation, so that interpolated frames look like their sources.
    Source open(ImportedBuffer input);

    // Call beginInterval() for two consecutive sources of one size, then writeBetween() for each
    // interpolated frame between them. All frames are scaled to the size of `to`.
    void beginInterval(const Source& older, const Source& newer);
    void writeBetween(const Source& older, const Source& newer, Phase phase, const Nv12Canvas& to);
    void write(const Source& source, const Nv12Canvas& to);

    // Copies the pixels of the source, unless it has done so before. The source does not need its
    // queued buffer afterwards.
    void keepCopy(Source& source);
    // Keeps the memory of a source that is no longer needed for a later one.
    void recycle(Source source);

  private:
    Nv12Canvas ownCanvas(Source& source);
    void raiseDetail(const Nv12View& from, const Nv12View& half, const Nv12Canvas& to);

    uint64_t mOpened = 0;  // number of sources so far
    Interpolator mInterpolator;
    FrameScaler mScaler;
    std::vector<uint8_t> mBetween;  // an interpolated frame before scaling
    std::vector<uint8_t> mSmooth;   // luma of the half-size frame, scaled to the source's size
    std::vector<uint8_t> mSpare;    // memory for the next copy
};

}  // namespace qoz::host::vppservice
