// SPDX-License-Identifier: Apache-2.0
// 8-bit 4:2:0 to RGBA, to the nearest value: what the converter makes of it is what it was, however
// often a picture goes through. Compiled for each vector extension and chosen at run time.
#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>

#include "qozplay/media/Av.h"

namespace qozplay {

// Parts of kYuvUnit that luma and the two chroma samples, each less what stands for none, add to
// red, green and blue.
constexpr int kYuvShift = 13;
constexpr int kYuvUnit = 1 << kYuvShift;
struct YuvMatrix {
    int16_t black;  // of luma
    int16_t luma;
    int16_t redV;
    int16_t greenU;
    int16_t greenV;
    int16_t blueU;
};

// Empty for matrices that are not made of shares of red and blue in luma.
std::optional<YuvMatrix> yuvMatrix(AVColorSpace space, bool fullRange);

struct YuvPlanes {
    const uint8_t* y;
    const uint8_t* u;
    const uint8_t* v;
    ptrdiff_t yStride;
    ptrdiff_t uStride;
    ptrdiff_t vStride;
};
void yuvToRgba(const YuvMatrix& matrix, const YuvPlanes& from, uint8_t* rgba, size_t stride,
               size_t width, size_t height);

}  // namespace qozplay
