// Frames to NV12: colour conversion and scaling. Colours are BT.601, limited range.
#pragma once

#include <host/converter/MappedBuffer.h>

#include <cstdint>
#include <vector>

namespace qoz::host {

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
