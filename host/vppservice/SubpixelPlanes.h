// SPDX-License-Identifier: Apache-2.0
// A source frame that can be read between its pixels and a little outside of its edges.
#pragma once

#include <array>
#include <vector>

#include "host/vppservice/Frames.h"

namespace qoz::host::vppservice {

// Two pointers to pixels; the value meant is the mean of both. The pixels that follow in rows and
// planes form such pairs too.
struct PixelPair {
    const uint8_t* first;
    const uint8_t* second;
};

// A place in quarters of a luma pixel.
struct QuarterPlace {
    int x;
    int y;
};

// Holds four luma planes: the picture, the picture half a pixel to the right, half a pixel down,
// and both, each computed once with a filter of six taps. The values at quarter pixels are means of
// two of the four. A rim around the picture repeats its edge pixels. Keeps its memory from frame to
// frame. The interpolator owns it.
class SubpixelPlanes {
  public:
    static constexpr int kRim = 24;  // width of the rim in pixels

    // Reads a frame of luma and chroma. Throws std::bad_alloc if memory cannot be allocated.
    void build(const Nv12View& frame);
    // Reads only the luma, with a change of brightness: luma + luma * gain / 256 + offset.
    void buildLuma(const Nv12View& frame, int gain, int offset);

    // Returns the luma at a place as a pair; the pixels to the right and, by the stride, below
    // follow. The place may be in the rim, but not within three pixels of its outer edge.
    PixelPair at(QuarterPlace place) const {
        const int q = (place.y & 3) * 4 + (place.x & 3);
        const uint8_t* origin = mOrigin + (place.y >> 2) * mStride + (place.x >> 2);
        return {origin + mFirst[static_cast<size_t>(q)], origin + mSecond[static_cast<size_t>(q)]};
    }
    // The pixels of the picture itself.
    uint8_t* pixel(int x, int y) { return mOrigin + y * mStride + x; }
    const uint8_t* pixel(int x, int y) const { return mOrigin + y * mStride + x; }

    // A sample of chroma, two bytes. There is one row of samples for two rows of luma, and the rim
    // is half as wide.
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
    // Makes the rim and the planes between pixels.
    void finishLuma();

    std::vector<uint8_t> mBytes;
    uint8_t* mChromaOrigin = nullptr;
    uint8_t* mOrigin = nullptr;  // pixel (0, 0) of the picture itself
    ptrdiff_t mStride = 0;
    ptrdiff_t mPlane = 0;  // bytes from one of the four planes to the next
    int mWidth = 0;
    int mHeight = 0;
    std::array<ptrdiff_t, 16> mFirst{};  // offsets from a pixel for each of the 16 quarter places
    std::array<ptrdiff_t, 16> mSecond{};
};

}  // namespace qoz::host::vppservice
