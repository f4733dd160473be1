// SPDX-License-Identifier: Apache-2.0
// From sources to pixels in a queued output buffer: detail, interpolation, scaling.
#pragma once

#include <cstdint>
#include <optional>
#include <vector>

#include "host/vppservice/ImportedBuffer.h"
#include "host/vppservice/Interpolator.h"
#include "host/vppservice/Scaler.h"

namespace qoz::host::vppservice {

// A source frame. Its pixels are those of the queued buffer or, once they had to be changed or to
// outlast it, its own.
struct Source {
    std::optional<ImportedBuffer> input;
    std::vector<uint8_t> own;
    Nv12View view;
    uint64_t timestamp = 0;  // microseconds
    uint64_t number = 0;     // from 1 on, the renderer's own
};

// For one thread.
class Renderer {
  public:
    // When the output is larger than the input and a frame of half the output's size came along,
    // luma detail is raised: half of what the source has over that frame, at most 16 steps, is
    // added. It happens before interpolation, so that frames in between look like their sources.
    Source open(ImportedBuffer input);

    void beginInterval(const Source& older, const Source& newer);
    void writeBetween(const Source& older, const Source& newer, Phase phase, const Nv12Canvas& to);
    void write(const Source& source, const Nv12Canvas& to);

    // After this the source no longer needs its queued buffer.
    void keepCopy(Source& source);
    // Takes the memory of a source that has had its day.
    void recycle(Source source);

  private:
    Nv12Canvas ownCanvas(Source& source);
    void raiseDetail(const Nv12View& from, const Nv12View& half, const Nv12Canvas& to);

    uint64_t mOpened = 0;  // sources, ever
    Interpolator mInterpolator;
    FrameScaler mScaler;
    std::vector<uint8_t> mBetween;  // a frame in between, before scaling
    std::vector<uint8_t> mSmooth;   // luma of the half-size frame, at the source's size
    std::vector<uint8_t> mSpare;
};

}  // namespace qoz::host::vppservice
