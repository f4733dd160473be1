// SPDX-License-Identifier: Apache-2.0
// Conversion of 8-bit YUV 4:2:0 to RGBA, rounded to the nearest value. The rounding is exact so
// that the converter restores the original YUV values and repeated processing does not change a
// picture. The kernel is compiled for each vector extension; the best one is chosen at run time.
#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>

#include "qozplay/media/Av.h"

namespace qozplay {

// The factors of a matrix are fixed-point numbers with this many bits after the point.
constexpr int kYuvShift = 13;
constexpr int kYuvUnit = 1 << kYuvShift;
// The factors of a conversion, in units of 1 / kYuvUnit. They apply to luma after `black` has been
// subtracted, and to chroma after 128 has been subtracted.
struct YuvMatrix {
    int16_t black;  // luma of black, in levels
    int16_t luma;
    int16_t redV;
    int16_t greenU;
    int16_t greenV;
    int16_t blueU;
};

// Returns the factors for BT.709 and BT.601, and nullopt for other colour spaces.
std::optional<YuvMatrix> yuvMatrix(AVColorSpace space, bool fullRange);

// The planes of a picture, which the caller owns. Strides are in bytes.
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
