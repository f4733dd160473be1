// SPDX-License-Identifier: Apache-2.0
// The luma of a frame at full size, 1/2, 1/4 and 1/8, for the block search.
#pragma once

#include <host/converter/MappedBuffer.h>

#include <array>
#include <cstddef>
#include <cstdint>
#include <vector>

namespace qoz::host {

// One plane of luma.
struct LumaPlane {
    std::vector<uint8_t> pixels;  // rows without padding
    int width = 0;
    int height = 0;

    const uint8_t* at(int x, int y) const {
        return pixels.data() + static_cast<ptrdiff_t>(y) * width + x;
    }
};

// The planes of one frame. The memory is kept from frame to frame.
class LumaPyramid {
  public:
    static constexpr int kMaxLevels = 4;

    // Reads the frame and makes the reduced planes.
    void build(const MappedBuffer& frame);
    // Applies changeBrightness() to all levels.
    void change(int gain, int offset);
    void release() { *this = LumaPyramid(); }

    // The number of levels, at least one. Each level has half the width and height of the level
    // before, rounded down.
    int levels() const { return mLevels; }
    const LumaPlane& smallest() const { return level(mLevels - 1); }
    const LumaPlane& level(int index) const { return mPlanes[static_cast<size_t>(index)]; }

  private:
    std::array<LumaPlane, kMaxLevels> mPlanes;
    int mLevels = 0;
};

}  // namespace qoz::host
