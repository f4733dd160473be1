// SPDX-License-Identifier: Apache-2.0
// RGBA to NV12, to the nearest value: compiled for each vector extension and chosen at run time.
#pragma once

#include <cstddef>
#include <cstdint>

namespace qoz::host {

// Shares of red, green and blue in luma and in the two chroma samples, of kColourUnit; what limited
// range keeps of each is in them.
constexpr int kColourUnit = 1 << 15;
struct ColourMatrix {
    int16_t y[3];
    int16_t u[3];
    int16_t v[3];
};

// Two rows of RGBA, the same one twice for the last of an odd number, and what becomes of them: two
// rows of luma, and one of chroma with two bytes for two pixels.
struct RowPair {
    const uint8_t* upper;
    const uint8_t* lower;
    uint8_t* upperLuma;
    uint8_t* lowerLuma;
    uint8_t* chroma;
};
void rgbaToNv12(const ColourMatrix& matrix, const RowPair& rows, size_t width);

}  // namespace qoz::host
