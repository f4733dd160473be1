// SPDX-License-Identifier: Apache-2.0
#include "host/vppservice/SubpixelPlanes.h"

#include <algorithm>
#include <cstring>

#include "host/vppservice/PixelKernels.h"

namespace qoz::host::vppservice {
namespace {

constexpr int kTaps = 3;  // pixels that the filter reads beyond its own

// Bytes that a kernel may write past the end of a row.
constexpr int kVector = 64;

// Which two of the four planes, and of which of their pixels, a quarter is the mean of.
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
    mWidth = width;
    mHeight = height;
    mStride = ptrdiff_t{(width + 2 * kRim + kVector + 63) / 64} * 64;
    mPlane = mStride * (height + 2 * kRim);
    // Kernels read whole vectors: past the last row's end, and before the first row's beginning.
    constexpr ptrdiff_t kSlack = 64;
    mBytes.assign(static_cast<size_t>(5 * mPlane + 2 * kSlack), 0);
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

// Repeats the picture's edge: `rim` rows, and as many samples of `sample` bytes.
void SubpixelPlanes::extend(uint8_t* origin, ptrdiff_t stride, int bytes, int rows, int sample,
                            int rim) {
    for (int y = 0; y < rows; ++y) {
        uint8_t* row = origin + y * stride;
        for (int i = 1; i <= rim; ++i) {
            std::memcpy(row - ptrdiff_t{i} * sample, row, static_cast<size_t>(sample));
            std::memcpy(row + bytes + ptrdiff_t{i - 1} * sample, row + bytes - sample,
                        static_cast<size_t>(sample));
        }
    }
    const ptrdiff_t left = static_cast<ptrdiff_t>(rim) * sample;
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
    extend(mChromaOrigin, mStride, bytes, rows, 2, kRim / 2);
}

void SubpixelPlanes::build(const Nv12View& frame) {
    resize(frame.size);
    for (int y = 0; y < mHeight; ++y) {
        std::memcpy(pixel(0, y), frame.luma + static_cast<size_t>(y) * frame.stride,
                    static_cast<size_t>(mWidth));
    }
    extend(mOrigin, mStride, mWidth, mHeight, 1, kRim);
    copyChroma(frame);
    rebuild(-kRim, -kRim, mWidth + kRim, mHeight + kRim);
}

void SubpixelPlanes::rebuild(int left, int top, int right, int bottom) {
    left = std::max(left - kTaps, -kRim + kTaps);
    top = std::max(top - kTaps, -kRim + kTaps);
    right = std::min(right + kTaps, mWidth + kRim - kTaps);
    bottom = std::min(bottom + kTaps, mHeight + kRim - kTaps);
    const auto count = static_cast<size_t>(right - left);
    // Both ways is half down of half to the right, which it needs some rows ahead.
    int ready = top - 2;
    for (int y = top; y < bottom; ++y) {
        for (; ready <= std::min(y + kTaps, bottom + 2); ++ready) {
            const uint8_t* from = pixel(left, ready);
            halfPixels(from, 1, pixel(left, ready) + mPlane, count);
        }
        halfPixels(pixel(left, y), mStride, pixel(left, y) + 2 * mPlane, count);
        halfPixels(pixel(left, y) + mPlane, mStride, pixel(left, y) + 3 * mPlane, count);
    }
}

}  // namespace qoz::host::vppservice
