// SPDX-License-Identifier: Apache-2.0
// The loops over the pixels of blocks, compiled for each vector extension and chosen at run time.
#pragma once

#include <cstddef>
#include <cstdint>

namespace qoz::host {

// Sums of absolute differences of 16x16 and 8x8 pixels.
uint32_t difference16(const uint8_t* a, ptrdiff_t aStride, const uint8_t* b, ptrdiff_t bStride);
uint32_t difference8(const uint8_t* a, ptrdiff_t aStride, const uint8_t* b, ptrdiff_t bStride);

// What a window of 16x16 pixels says of a small displacement: products of the gradient (the sum of
// both windows' central differences, four times their mean) and of the residual b - a, summed.
struct GradientSums {
    int32_t xx, xy, yy;  // gradient by gradient
    int32_t xr, yr;      // gradient by residual
    int32_t x, y, r;     // alone
};

// The pixels around both windows are read too.
GradientSums gradientSums16(const uint8_t* a, ptrdiff_t aStride, const uint8_t* b,
                            ptrdiff_t bStride);

// to = from + from * gain / 256 + offset, saturated.
void changeBrightness(const uint8_t* from, uint8_t* to, size_t count, int gain, int offset);

}  // namespace qoz::host
