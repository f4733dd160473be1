// SPDX-License-Identifier: Apache-2.0
// Creates and reads pictures and vector fields in graphic buffers, for the tests of the converter
// and of the service.
#pragma once

#include <gtest/gtest.h>
#include <host/converter/MotionField.h>
#include <host/platform/BufferLayout.h>
#include <ui/GraphicBufferMapper.h>

#include <array>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <functional>
#include <vector>

namespace qoz::test {

using namespace host;
using android::GraphicBuffer;
using android::sp;
using Colour = std::array<uint8_t, 3>;  // R, G, B or Y, U, V

inline sp<GraphicBuffer> makeBuffer(int width, int height, int32_t format) {
    return new GraphicBuffer(width, height, format, GraphicBuffer::USAGE_SW_WRITE_OFTEN);
}
inline sp<GraphicBuffer> makeField(int sourceWidth, int sourceHeight) {
    return makeBuffer((sourceWidth + 15) / 16 * 2, (sourceHeight + 15) / 16, kRgba8888);
}
// Returns the mapped pixels, which are valid as long as the buffer exists.
inline uint8_t* pixelsOf(const sp<GraphicBuffer>& buffer) {
    void* pixels = nullptr;
    EXPECT_EQ(buffer->lock(GraphicBuffer::USAGE_SW_READ_OFTEN, &pixels), android::OK);
    buffer->unlock();  // the simulator keeps a buffer mapped as long as it exists
    return static_cast<uint8_t*>(pixels);
}

inline uint32_t sizeOf(const sp<GraphicBuffer>& buffer) {
    uint64_t size = 0;
    android::GraphicBufferMapper::getInstance().getAllocationSize(buffer->handle, &size);
    return static_cast<uint32_t>(size);
}
inline std::vector<uint8_t> bytesOf(const sp<GraphicBuffer>& buffer) {
    return {pixelsOf(buffer), pixelsOf(buffer) + sizeOf(buffer)};
}
inline MotionVector* vectorsOf(const sp<GraphicBuffer>& field) {
    return reinterpret_cast<MotionVector*>(pixelsOf(field));
}
inline Colour yuvAt(const sp<GraphicBuffer>& nv12, int x, int y) {
    const Nv12Layout layout = nv12Layout(nv12->getWidth(), nv12->getHeight());
    const uint8_t* pixels = pixelsOf(nv12);
    const uint8_t* chroma = pixels + layout.chromaOffset + layout.stride * (y / 2) + (x & ~1);
    return {pixels[layout.stride * y + x], chroma[0], chroma[1]};
}
inline bool near(const Colour& a, const Colour& b, int tolerance) {
    return std::abs(a[0] - b[0]) <= tolerance && std::abs(a[1] - b[1]) <= tolerance &&
           std::abs(a[2] - b[2]) <= tolerance;
}

// The value of one plane at each pixel.
using Picture = std::function<int(int x, int y)>;
inline Picture flat(int value) {
    return [value](int, int) { return value; };
}

// Paints a frame. An NV12 frame gets this luma, this chroma as U, and 255 - U as V. An RGBA frame
// gets the luma in all four bytes.
inline void paint(const sp<GraphicBuffer>& frame, const Picture& luma, const Picture& chroma) {
    const Nv12Layout layout = nv12Layout(frame->width, frame->height);
    uint8_t* const pixels = pixelsOf(frame);
    for (int i = 0; i < frame->width * frame->height; ++i) {
        const int x = i % frame->width, y = i / frame->width;
        if (isNv12(frame->format)) {
            uint8_t* pair = pixels + layout.chromaOffset + layout.stride * (y / 2) + (x & ~1);
            pixels[layout.stride * y + x] = static_cast<uint8_t>(luma(x, y));
            pair[0] = static_cast<uint8_t>(chroma(x & ~1, y & ~1));
            pair[1] = static_cast<uint8_t>(255 - pair[0]);
        } else {
            memset(pixels + i * 4, luma(x, y), 4);
        }
    }
}
inline sp<GraphicBuffer> painted(int width, int height, int32_t format, const Picture& luma,
                                 const Picture& chroma = flat(128)) {
    auto made = makeBuffer(width, height, format);
    paint(made, luma, chroma);
    return made;
}

// Returns a pseudo-random value from 0 to 255 that depends only on the position.
inline int noise(int x, int y) {
    uint32_t h = static_cast<uint32_t>(x) * 374761393U + static_cast<uint32_t>(y) * 668265263U;
    h = (h ^ (h >> 13)) * 1274126177U;
    return static_cast<int>((h ^ (h >> 16)) & 0xFF);
}

// A non-repeating texture with detail of several sizes, like a natural picture.
inline int textured(int x, int y) {
    constexpr int kOffset = 4096;  // keeps the divisions from rounding towards zero
    const auto smooth = [x = x + kOffset, y = y + kOffset](int size) {
        const int left = x / size, top = y / size, u = x % size, v = y % size;
        const int above = noise(left, top) * (size - u) + noise(left + 1, top) * u;
        const int below = noise(left, top + 1) * (size - u) + noise(left + 1, top + 1) * u;
        return (above * (size - v) + below * v) / (size * size);
    };
    return smooth(48) / 2 + smooth(12) / 4 + smooth(4) / 4;
}

}  // namespace qoz::test
