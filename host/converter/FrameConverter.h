// SPDX-License-Identifier: Apache-2.0
// Conversion of frames to NV12, and scaling. Colours have limited range. Sources of 720 rows and
// more use BT.709, smaller ones BT.601: players assume this for a clip that carries no colour
// information.
#pragma once

#include <host/converter/MappedBuffer.h>

#include <cstdint>
#include <vector>

namespace qoz::host {

constexpr bool isHighDefinition(uint32_t height) {
    return height >= 720;
}

// Converts frames and keeps its working memory between them. Not for use by two threads at once.
class FrameConverter {
  public:
    // Converts the frame, RGBA or NV12, and scales it to the target's size. Returns false if it
    // cannot be scaled between these sizes.
    bool convert(const MappedBuffer& source, const Nv12Picture& target);

    // Scales an NV12 picture. Returns false if the library cannot scale between these sizes.
    static bool scale(const Nv12Picture& from, const Nv12Picture& to);

    // Allocates the memory that is necessary to convert RGBA frames of this size to another size.
    void prepare(uint32_t width, uint32_t height);
    void release() { std::vector<uint8_t>().swap(mScratch); }

  private:
    std::vector<uint8_t> mScratch;  // one NV12 frame of the source's size
};

}  // namespace qoz::host
