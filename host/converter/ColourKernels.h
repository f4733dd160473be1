// SPDX-License-Identifier: Apache-2.0
// Conversion from RGBA to NV12, rounded to the nearest value. It is compiled for each vector
// extension, and the extension is chosen at run time.
#pragma once

#include <cstddef>
#include <cstdint>

namespace qoz::host {

// The weights of red, green and blue in luma and in the two chroma samples, in units of 1 /
// kColourUnit. They include the scaling to limited range.
constexpr int kColourUnit = 1 << 15;
struct ColourMatrix {
    int16_t y[3];
    int16_t u[3];
    int16_t v[3];
};

// Two rows of RGBA, and the rows that they are converted to: two of luma, and one of chroma with
// two bytes for two pixels. If the frame has an odd number of rows, the last pair holds the same
// row twice.
struct RowPair {
    const uint8_t* upper;
    const uint8_t* lower;
    uint8_t* upperLuma;
    uint8_t* lowerLuma;
    uint8_t* chroma;
};
// Converts one pair of rows of `width` pixels.
void rgbaToNv12(const ColourMatrix& matrix, const RowPair& rows, size_t width);

}  // namespace qoz::host
