// SPDX-License-Identifier: Apache-2.0
// The layout of pixels in a graphic buffer. It depends only on size and pixel format, because the
// VPP service receives only a descriptor: it must find the planes from the size of the port.
#pragma once

#include <cstddef>
#include <cstdint>

namespace qoz::host {

// Pixel formats of the platform. The host simulator gives the vendor formats a linear layout.
constexpr int32_t kRgba8888 = 1;            // bytes R, G, B, A
constexpr int32_t kRgbx8888 = 2;            // the same, but A is ignored
constexpr int32_t kVendorRgb = 0x115;       // here the layout of kRgba8888
constexpr int32_t kVendorYuv = 0x7FA30C04;  // here NV12
constexpr int32_t kNv12Vemo = 0x7FA30C06;   // compressed NV12 on a device; here plain NV12

constexpr uint32_t evenUp(uint32_t value) {
    return (value + 1) & ~1U;
}

// NV12 consists of a luma plane and a chroma plane, which has one row of interleaved U and V for
// every two rows of luma. All members are in bytes.
struct Nv12Layout {
    size_t stride;        // of both planes
    size_t chromaOffset;  // from the start of the buffer
    size_t size;          // of both planes together
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

// Frames with a longer side are refused, so that no size in bytes can overflow.
constexpr uint32_t kLongestSide = 1U << 16;

// Returns the number of bytes of the pixels, or 0 if the size or the format is not supported.
constexpr size_t pixelBytes(uint32_t width, uint32_t height, int32_t format) {
    if (width > kLongestSide || height > kLongestSide) return 0;
    if (isNv12(format)) return nv12Layout(width, height).size;
    if (format == kRgba8888 || format == kRgbx8888 || format == kVendorRgb) {
        return rgbaStride(width) * height;
    }
    return 0;
}

}  // namespace qoz::host
