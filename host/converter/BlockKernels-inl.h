// SPDX-License-Identifier: Apache-2.0
// The loops over the pixels of a block. A source file that processes a whole field of blocks
// includes this file once for each vector extension. It then chooses the extension once for each
// field, and these functions are inlined into its loops.

// This file is included once for each extension, so it has no `#pragma once`.
#if defined(QOZ_HOST_CONVERTER_BLOCK_KERNELS_INL_H) == defined(HWY_TARGET_TOGGLE)
#ifdef QOZ_HOST_CONVERTER_BLOCK_KERNELS_INL_H
#undef QOZ_HOST_CONVERTER_BLOCK_KERNELS_INL_H
#else
#define QOZ_HOST_CONVERTER_BLOCK_KERNELS_INL_H
#endif

#include <host/converter/Block.h>
#include <host/converter/Difference-inl.h>
#include <host/converter/LumaPyramid.h>
#include <hwy/highway.h>

#include <algorithm>
#include <cstdlib>

HWY_BEFORE_NAMESPACE();
namespace qoz::host::HWY_NAMESPACE {
namespace hn = hwy::HWY_NAMESPACE;

// Sum of the absolute differences of every second row of 16x16 pixels.
HWY_INLINE uint32_t halfDifference16(const uint8_t* a, ptrdiff_t aStride, const uint8_t* b,
                                     ptrdiff_t bStride) {
    const Bytes16 d;
    auto even = hn::Zero(Sums2());
    auto odd = hn::Zero(Sums2());
    for (int y = 0; y < 16; y += 4, a += 4 * aStride, b += 4 * bStride) {
        even = hn::Add(even, sumsOfDifferences(hn::LoadU(d, a), hn::LoadU(d, b)));
        odd = hn::Add(
            odd, sumsOfDifferences(hn::LoadU(d, a + 2 * aStride), hn::LoadU(d, b + 2 * bStride)));
    }
    return total(hn::Add(even, odd));
}

// Loads two rows of 8 pixels into one vector; `apart` is the distance between them in bytes.
HWY_INLINE auto twoRowsOf8(const uint8_t* p, ptrdiff_t apart) {
    const hn::FixedTag<uint8_t, 8> eight;
    return hn::Combine(Bytes16(), hn::LoadU(eight, p + apart), hn::LoadU(eight, p));
}

// Sum of the absolute differences of every second row of 8x8 pixels.
HWY_INLINE uint32_t halfDifference8(const uint8_t* a, ptrdiff_t aStride, const uint8_t* b,
                                    ptrdiff_t bStride) {
    const auto upper = sumsOfDifferences(twoRowsOf8(a, 2 * aStride), twoRowsOf8(b, 2 * bStride));
    a += 4 * aStride;
    b += 4 * bStride;
    const auto lower = sumsOfDifferences(twoRowsOf8(a, 2 * aStride), twoRowsOf8(b, 2 * bStride));
    return total(hn::Add(upper, lower));
}

// The difference of a block that lies partly outside one of the planes. The sum over the part
// inside is scaled up to the whole block. If less than half of the block is inside, there is
// nothing to compare.
inline uint32_t clippedDifference(const LumaPlane& from, const LumaPlane& to, const Block& block,
                                  int toX, int toY) {
    const int left = std::max(0, -toX);
    const int top = std::max(0, -toY);
    const int width = std::min({block.size, from.width - block.x, to.width - toX}) - left;
    const int height = std::min({block.size, from.height - block.y, to.height - toY}) - top;
    if (width <= 0 || height <= 0) return kUnseen;

    // A plane smaller than a block counts as a whole block.
    const int whole = std::min(block.size, from.width) * std::min(block.size, from.height);
    if (width * height * 2 < whole) return kUnseen;
    uint32_t sum = 0;
    for (int y = 0; y < height; ++y) {
        const uint8_t* a = from.at(block.x + left, block.y + top + y);
        const uint8_t* b = to.at(toX + left, toY + top + y);
        for (int x = 0; x < width; ++x)
            sum += static_cast<uint32_t>(std::abs(a[x] - b[x]));
    }
    return sum * block.area() / static_cast<uint32_t>(width * height);
}

// Returns the sum of the absolute differences between a block of one plane and the displaced block
// of another. If the first half of the rows already reaches `limit`, the other half is not added:
// the caller only needs to know that the limit was reached.
HWY_INLINE uint32_t blockDifference(const LumaPlane& from, const LumaPlane& to, const Block& block,
                                    Displacement displacement, uint32_t limit = kUnseen) {
    const auto within = [size = block.size](const LumaPlane& plane, int x, int y) {
        return x >= 0 && y >= 0 && x + size <= plane.width && y + size <= plane.height;
    };
    const int toX = block.x + displacement.dx;
    const int toY = block.y + displacement.dy;
    if (!within(to, toX, toY) || !within(from, block.x, block.y)) {
        return clippedDifference(from, to, block, toX, toY);
    }
    const uint8_t* a = from.at(block.x, block.y);
    const uint8_t* b = to.at(toX, toY);
    uint32_t sum = 0;
    for (int half = 0; half < 2 && sum < limit; ++half, a += from.width, b += to.width) {
        sum += block.size == 16 ? halfDifference16(a, from.width, b, to.width)
                                : halfDifference8(a, from.width, b, to.width);
    }
    return sum;
}

}  // namespace qoz::host::HWY_NAMESPACE
HWY_AFTER_NAMESPACE();

#endif  // once for each extension
