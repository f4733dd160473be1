// SPDX-License-Identifier: Apache-2.0
// Frames to NV12: colour conversion and scaling. Colours are limited range, BT.709 for sources of
// 720 rows and more, BT.601 below: what a clip means that does not say.
#pragma once

#include <host/converter/MappedBuffer.h>

#include <cstdint>
#include <vector>

namespace qoz::host {

constexpr bool isHighDefinition(uint32_t height) {
    return height >= 720;
}

class FrameConverter {
  public:
    // Writes the frame, RGBA or NV12, scaled to the target's size. False: the pixel code refused.
    bool convert(const MappedBuffer& source, const Nv12Picture& target);

    static bool scale(const Nv12Picture& from, const Nv12Picture& to);

    // Memory for frames of this size whose targets have another one.
    void prepare(uint32_t width, uint32_t height);
    void release() { std::vector<uint8_t>().swap(mScratch); }

  private:
    std::vector<uint8_t> mScratch;  // one NV12 frame of the source's size
};

}  // namespace qoz::host
