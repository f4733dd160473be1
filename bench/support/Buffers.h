// SPDX-License-Identifier: Apache-2.0
// Creates the graphic buffers of the benches.
#pragma once

#include <ui/GraphicBuffer.h>

#include <cstdint>

namespace qoz::bench {

constexpr uint32_t kWidth = 1280;
constexpr uint32_t kHeight = 720;
constexpr int kRgba = 1;
constexpr int kNv12 = 0x7FA30C06;

inline android::sp<android::GraphicBuffer> makeBuffer(uint32_t width, uint32_t height, int format) {
    constexpr uint32_t kUsage = 0x333;  // read and written by CPU and GPU
    return new android::GraphicBuffer(width, height, format, kUsage);
}

}  // namespace qoz::bench
