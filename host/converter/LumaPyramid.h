// SPDX-License-Identifier: Apache-2.0
// A frame's luma at full size, 1/2, 1/4 and 1/8.
#pragma once

#include <host/converter/MappedBuffer.h>

#include <array>
#include <cstddef>
#include <cstdint>
#include <vector>

namespace qoz::host {

struct LumaPlane {
    std::vector<uint8_t> pixels;  // rows without padding
    int width = 0;
    int height = 0;

    const uint8_t* at(int x, int y) const {
        return pixels.data() + static_cast<ptrdiff_t>(y) * width + x;
    }
};

class LumaPyramid {
  public:
    static constexpr int kMaxLevels = 4;

    void build(const MappedBuffer& frame);
    // All levels become brighter or darker: see changeBrightness().
    void change(int gain, int offset);
    void release() { *this = LumaPyramid(); }

    // At least one; a level has half the pixels of the one below, both ways, rounded down.
    int levels() const { return mLevels; }
    const LumaPlane& smallest() const { return level(mLevels - 1); }
    const LumaPlane& level(int index) const { return mPlanes[static_cast<size_t>(index)]; }

  private:
    std::array<LumaPlane, kMaxLevels> mPlanes;
    int mLevels = 0;
};

}  // namespace qoz::host
