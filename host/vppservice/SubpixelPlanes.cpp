// SPDX-License-Identifier: Apache-2.0
#include "host/vppservice/SubpixelPlanes.h"

#include <algorithm>
#include <cstring>

#include "host/vppservice/PixelKernels.h"

namespace qoz::host::vppservice {
namespace {

// Bytes that a kernel may write past the end of a row.
constexpr int kVector = 64;

// The plane and the pixel that a quarter place is read from. Each place is the mean of a first and
// a second one.
struct Source {
    int plane;  // 0 the picture, 1 half to the right, 2 half down, 3 both
    int right;
    int down;
};
constexpr Source kFirst[16] = {{0, 0, 0}, {0, 0, 0}, {1, 0, 0}, {1, 0, 0},    //
                               {0, 0, 0}, {1, 0, 0}, {1, 0, 0}, {1, 0, 0},    //
                               {2, 0, 0}, {2, 0, 0}, {3, 0, 0}, {3, 0, 0},    //
                               {2, 0, 0}, {2, 0, 0}, {3, 0, 0}, {2, 1, 0}};   //
constexpr Source kSecond[16] = {{0, 0, 0}, {1, 0, 0}, {1, 0, 0}, {0, 1, 0},   //
                                {2, 0, 0}, {2, 0, 0}, {3, 0, 0}, {2, 1, 0},   //
                                {2, 0, 0}, {3, 0, 0}, {3, 0, 0}, {2, 1, 0},   //
                                {0, 0, 1}, {1, 0, 1}, {1, 0, 1}, {1, 0, 1}};  //

}  // namespace

void SubpixelPlanes::resize(FrameSize size) {
    const int width = static_cast<int>(size.width);
    const int height = static_cast<int>(size.height);
    if (width == mWidth && height == mHeight) return;
    mWidth = mHeight = 0;  // until the allocation has succeeded
    mStride = ptrdiff_t{(width + 2 * kRim + kVector + 63) / 64} * 64;
    mPlane = mStride * (height + 2 * kRim);
    // Kernels read whole vectors, also past the end of the last row and before the first row.
    constexpr ptrdiff_t kSlack = 64;
    mBytes.assign(static_cast<size_t>(5 * mPlane + 2 * kSlack), 0);
    mWidth = width;
    mHeight = height;
    mChromaOrigin = mBytes.data() + kSlack + 4 * mPlane + kRim / 2 * mStride + kRim;
    mOrigin = mBytes.data() + kSlack + kRim * mStride + kRim;
    const auto offset = [&](const Source& s) {
        return s.plane * mPlane + s.down * mStride + s.right;
    };
    for (size_t q = 0; q < 16; ++q) {
        mFirst[q] = offset(kFirst[q]);
        mSecond[q] = offset(kSecond[q]);
    }
}

// Repeats the edge pixels of a plane: `rim` rows above and below, and `rim` samples at each side.
template <typename Sample>
void SubpixelPlanes::extend(uint8_t* origin, ptrdiff_t stride, int samples, int rows, int rim) {
    const auto bytes = ptrdiff_t{samples} * static_cast<ptrdiff_t>(sizeof(Sample));
    const auto left = ptrdiff_t{rim} * static_cast<ptrdiff_t>(sizeof(Sample));
    const auto repeat = [rim](const uint8_t* sample, uint8_t* to) {
        Sample edge;
        std::memcpy(&edge, sample, sizeof(edge));
        for (int i = 0; i < rim; ++i, to += sizeof(edge))
            std::memcpy(to, &edge, sizeof(edge));
    };
    for (int y = 0; y < rows; ++y) {
        uint8_t* row = origin + y * stride;
        repeat(row, row - left);
        repeat(row + bytes - sizeof(Sample), row + bytes);
    }
    const auto whole = static_cast<size_t>(2 * left + bytes);
    for (int i = 1; i <= rim; ++i) {
        std::memcpy(origin - left - i * stride, origin - left, whole);
        uint8_t* last = origin - left + (rows - 1) * stride;
        std::memcpy(last + i * stride, last, whole);
    }
}

void SubpixelPlanes::copyChroma(const Nv12View& frame) {
    const auto bytes = static_cast<int>(frame.chromaBytes());
    const auto rows = static_cast<int>(frame.chromaRows());
    for (int y = 0; y < rows; ++y) {
        std::memcpy(mChromaOrigin + y * mStride,
                    frame.chroma + static_cast<size_t>(y) * frame.stride,
                    static_cast<size_t>(bytes));
    }
    extend<uint16_t>(mChromaOrigin, mStride, bytes / 2, rows, kRim / 2);
}

void SubpixelPlanes::build(const Nv12View& frame) {
    resize(frame.size);
    for (int y = 0; y < mHeight; ++y) {
        std::memcpy(pixel(0, y), frame.luma + static_cast<size_t>(y) * frame.stride,
                    static_cast<size_t>(mWidth));
    }
    finishLuma();
    copyChroma(frame);
}

void SubpixelPlanes::buildLuma(const Nv12View& frame, int gain, int offset) {
    resize(frame.size);
    for (int y = 0; y < mHeight; ++y) {
        changeBrightness(frame.luma + static_cast<size_t>(y) * frame.stride, pixel(0, y),
                         static_cast<size_t>(mWidth), gain, offset);
    }
    finishLuma();
}

void SubpixelPlanes::finishLuma() {
    extend<uint8_t>(mOrigin, mStride, mWidth, mHeight, kRim);
    constexpr int kOut = kRim - kFilterReach;
    makeHalfPixels({pixel(-kOut, -kOut), mStride, mPlane, mWidth + 2 * kOut, mHeight + 2 * kOut});
}

}  // namespace qoz::host::vppservice
