// SPDX-License-Identifier: Apache-2.0
#include <host/converter/BlockDifference.h>
#include <host/converter/BlockKernels.h>

#include <algorithm>
#include <cstdlib>

namespace qoz::host {
namespace {

// Any size, for blocks at the edges.
uint32_t sumAny(const uint8_t* a, ptrdiff_t aStride, const uint8_t* b, ptrdiff_t bStride, int width,
                int height) {
    uint32_t sum = 0;
    for (int y = 0; y < height; ++y, a += aStride, b += bStride) {
        for (int x = 0; x < width; ++x)
            sum += static_cast<uint32_t>(std::abs(a[x] - b[x]));
    }
    return sum;
}

bool within(const LumaPlane& plane, int x, int y, int size) {
    return x >= 0 && y >= 0 && x + size <= plane.width && y + size <= plane.height;
}

uint32_t clippedDifference(const LumaPlane& from, const LumaPlane& to, const Block& block, int toX,
                           int toY) {
    const int left = std::max(0, -toX);
    const int top = std::max(0, -toY);
    const int width = std::min({block.size, from.width - block.x, to.width - toX}) - left;
    const int height = std::min({block.size, from.height - block.y, to.height - toY}) - top;
    if (width <= 0 || height <= 0) return kUnseen;

    // Planes smaller than a block have no more than themselves to show.
    const int whole = std::min(block.size, from.width) * std::min(block.size, from.height);
    if (width * height * 2 < whole) return kUnseen;
    const uint32_t sum = sumAny(from.at(block.x + left, block.y + top), from.width,
                                to.at(toX + left, toY + top), to.width, width, height);
    return sum * block.area() / static_cast<uint32_t>(width * height);
}

}  // namespace

uint32_t blockDifference(const LumaPlane& from, const LumaPlane& to, const Block& block,
                         Displacement displacement) {
    const int toX = block.x + displacement.dx;
    const int toY = block.y + displacement.dy;
    if (!within(to, toX, toY, block.size) || !within(from, block.x, block.y, block.size)) {
        return clippedDifference(from, to, block, toX, toY);
    }
    const uint8_t* a = from.at(block.x, block.y);
    const uint8_t* b = to.at(toX, toY);
    return block.size == 16 ? difference16(a, from.width, b, to.width)
                            : difference8(a, from.width, b, to.width);
}

uint8_t blockTexture(const LumaPlane& plane, const Block& block) {
    uint32_t sum = 0;
    for (const Displacement step : {Displacement{1, 0}, Displacement{0, 1}}) {
        const uint32_t difference = blockDifference(plane, plane, block, step);
        if (difference != kUnseen) sum += difference;
    }
    return static_cast<uint8_t>(std::min(255U, sum / block.area()));
}

}  // namespace qoz::host
