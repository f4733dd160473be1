// SPDX-License-Identifier: Apache-2.0
// A frame that can be read off its grid of pixels, and a little outside of it.
#pragma once

#include <array>
#include <vector>

#include "host/vppservice/Frames.h"

namespace qoz::host::vppservice {

// Two rows of pixels, or planes of them, whose mean is meant.
struct PixelPair {
    const uint8_t* first;
    const uint8_t* second;
};

// A place in quarters of a pixel of luma.
struct QuarterPlace {
    int x;
    int y;
};

// The picture itself and what lies half a pixel to the right, half a pixel down, and both, each
// made once by a filter of six taps; the quarters between are means of two of the four. A rim
// around the picture repeats its edge.
class SubpixelPlanes {
  public:
    static constexpr int kRim = 24;  // pixels

    void build(const Nv12View& frame);
    // The same without chroma, of a frame whose luma is made brighter: luma + luma * gain / 256 +
    // offset.
    void buildLuma(const Nv12View& frame, int gain, int offset);

    // Two bytes whose mean is the luma there, and with them all that follow to the right and, by
    // the stride, below. The place may be in the rim, three pixels from its outer edge at most.
    PixelPair at(QuarterPlace place) const {
        const int q = (place.y & 3) * 4 + (place.x & 3);
        const uint8_t* origin = mOrigin + (place.y >> 2) * mStride + (place.x >> 2);
        return {origin + mFirst[static_cast<size_t>(q)], origin + mSecond[static_cast<size_t>(q)]};
    }
    // The picture's own pixels.
    uint8_t* pixel(int x, int y) { return mOrigin + y * mStride + x; }
    const uint8_t* pixel(int x, int y) const { return mOrigin + y * mStride + x; }

    // Chroma, a row of samples of two bytes for each two rows of luma, with half the rim.
    const uint8_t* chroma(int x, int y) const {
        return mChromaOrigin + ptrdiff_t{y} * mStride + ptrdiff_t{2} * x;
    }

    ptrdiff_t stride() const { return mStride; }  // of all planes
    int width() const { return mWidth; }
    int height() const { return mHeight; }

  private:
    void resize(FrameSize size);
    template <typename Sample>
    static void extend(uint8_t* origin, ptrdiff_t stride, int samples, int rows, int rim);
    void copyChroma(const Nv12View& frame);
    // The rim, and what lies between pixels.
    void finishLuma();

    std::vector<uint8_t> mBytes;
    uint8_t* mChromaOrigin = nullptr;
    uint8_t* mOrigin = nullptr;  // pixel (0, 0) of the picture itself
    ptrdiff_t mStride = 0;
    ptrdiff_t mPlane = 0;  // bytes from one of the four planes to the next
    int mWidth = 0;
    int mHeight = 0;
    std::array<ptrdiff_t, 16> mFirst{};  // from a pixel's place, by quarter
    std::array<ptrdiff_t, 16> mSecond{};
};

}  // namespace qoz::host::vppservice
