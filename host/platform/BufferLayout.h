// SPDX-License-Identifier: Apache-2.0
// Where the pixels are. A function of size and format alone, so that who receives a bare descriptor
// and knows the port's size (the VPP service) finds the same planes as who holds the graphic
// buffer.
#pragma once

#include <cstddef>
#include <cstdint>

namespace qoz::host {

// Pixel-format numbers of the platform.
constexpr int32_t kRgba8888 = 1;            // bytes R, G, B, A
constexpr int32_t kRgbx8888 = 2;            // the same, A ignored
constexpr int32_t kVendorRgb = 0x115;       // laid out as RGBA here
constexpr int32_t kVendorYuv = 0x7FA30C04;  // laid out as NV12 here
constexpr int32_t kNv12Vemo = 0x7FA30C06;   // "compressed NV12"; plain NV12 here

constexpr uint32_t evenUp(uint32_t value) {
    return (value + 1) & ~1U;
}

// NV12: a luma plane, then one row of interleaved U and V for each two rows of luma. All in bytes.
struct Nv12Layout {
    size_t stride;        // of both planes
    size_t chromaOffset;  // of the U and V plane
    size_t size;          // of the whole
};

constexpr Nv12Layout nv12Layout(uint32_t width, uint32_t height) {
    const size_t stride = evenUp(width);
    const size_t chromaOffset = stride * height;
    return {stride, chromaOffset, chromaOffset + stride * (evenUp(height) / 2)};
}

constexpr size_t rgbaStride(uint32_t width) {
    return static_cast<size_t>(width) * 4;
}

constexpr bool isNv12(int32_t format) {
    return format == kNv12Vemo || format == kVendorYuv;
}

// Longer sides are refused, so that no size computed from two of them wraps.
constexpr uint32_t kLongestSide = 1U << 16;

// Bytes that the pixels need; 0 for a size or a format that nobody lays out.
constexpr size_t pixelBytes(uint32_t width, uint32_t height, int32_t format) {
    if (width > kLongestSide || height > kLongestSide) return 0;
    if (isNv12(format)) return nv12Layout(width, height).size;
    if (format == kRgba8888 || format == kRgbx8888 || format == kVendorRgb) {
        return rgbaStride(width) * height;
    }
    return 0;
}

}  // namespace qoz::host
