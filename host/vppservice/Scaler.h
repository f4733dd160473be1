// SPDX-License-Identifier: Apache-2.0
// Scales frames by Lanczos' filter of three lobes.
#pragma once

#include <zimg.h>

#include <cstdlib>
#include <memory>

#include "host/vppservice/Frames.h"

namespace qoz::host::vppservice {

// One plane of bytes, from one size to another. The library reads and writes aligned rows, so
// planes go through memory of the scaler's own.
class PlaneScaler {
  public:
    // Keeps what it has when the sizes are those of the last call. False: not to be scaled so.
    bool prepare(FrameSize from, FrameSize to);

    // `step` bytes lie between two samples of a row on either side: 2 for one half of chroma.
    void scale(const uint8_t* from, size_t fromStride, uint8_t* to, size_t toStride, int step);

  private:
    struct Free {
        void operator()(void* memory) const { free(memory); }
        void operator()(zimg_filter_graph* graph) const { zimg_filter_graph_free(graph); }
    };
    using Memory = std::unique_ptr<uint8_t, Free>;

    static Memory allocate(size_t bytes);

    FrameSize mFrom;
    FrameSize mTo;
    size_t mFromStride = 0;
    size_t mToStride = 0;
    std::unique_ptr<zimg_filter_graph, Free> mGraph;
    Memory mIn;
    Memory mOut;
    Memory mSpare;
};

class FrameScaler {
  public:
    void scale(const Nv12View& from, const Nv12Canvas& to);

  private:
    PlaneScaler mLuma;
    PlaneScaler mChroma;
};

}  // namespace qoz::host::vppservice
