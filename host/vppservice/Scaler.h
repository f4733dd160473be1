// SPDX-License-Identifier: Apache-2.0
// Scales frames with a Lanczos filter of three lobes.
#pragma once

#include <zimg.h>

#include <cstdlib>
#include <memory>

#include "host/vppservice/Frames.h"

namespace qoz::host::vppservice {

// Scales one plane of bytes. The library needs aligned rows, so the planes are copied to and from
// aligned memory.
class PlaneScaler {
  public:
    // Prepares for a pair of sizes; does nothing if they are those of the last call. Returns false
    // if the library cannot scale between them. Throws std::bad_alloc if memory cannot be
    // allocated.
    bool prepare(FrameSize from, FrameSize to);

    // Scales a plane. `step` is the distance between two samples of a row in bytes: 1 for luma, 2
    // for one component of chroma.
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

// Scales whole frames. Not for use by two threads at once.
class FrameScaler {
  public:
    // If the library cannot scale between these sizes, a bilinear filter is used instead.
    void scale(const Nv12View& from, const Nv12Canvas& to);

  private:
    PlaneScaler mLuma;
    PlaneScaler mChroma;
};

}  // namespace qoz::host::vppservice
