#include <host/converter/BlockDifference.h>

#include <algorithm>
#include <cstdlib>

#ifdef __SSE2__
#include <emmintrin.h>
#endif

namespace qoz::host {
namespace {

// Any size; what the compiler makes of it is an order of magnitude slower than the two below.
uint32_t sumAny(const uint8_t* a, ptrdiff_t aStride, const uint8_t* b, ptrdiff_t bStride, int width,
                int height) {
    uint32_t sum = 0;
    for (int y = 0; y < height; ++y, a += aStride, b += bStride) {
        for (int x = 0; x < width; ++x)
            sum += static_cast<uint32_t>(std::abs(a[x] - b[x]));
    }
    return sum;
}

#ifdef __SSE2__

uint32_t total(__m128i sums) {
    return static_cast<uint32_t>(_mm_cvtsi128_si32(sums) +
                                 _mm_cvtsi128_si32(_mm_srli_si128(sums, 8)));
}

uint32_t sum16(const uint8_t* a, ptrdiff_t aStride, const uint8_t* b, ptrdiff_t bStride) {
    const auto row = [](const uint8_t* p) {
        return _mm_loadu_si128(reinterpret_cast<const __m128i*>(p));
    };
    __m128i sums = _mm_setzero_si128();
    for (int y = 0; y < 16; ++y, a += aStride, b += bStride) {
        sums = _mm_add_epi64(sums, _mm_sad_epu8(row(a), row(b)));
    }
    return total(sums);
}

uint32_t sum8(const uint8_t* a, ptrdiff_t aStride, const uint8_t* b, ptrdiff_t bStride) {
    const auto twoRows = [](const uint8_t* p, ptrdiff_t stride) {
        return _mm_unpacklo_epi64(_mm_loadl_epi64(reinterpret_cast<const __m128i*>(p)),
                                  _mm_loadl_epi64(reinterpret_cast<const __m128i*>(p + stride)));
    };
    __m128i sums = _mm_setzero_si128();
    for (int y = 0; y < 8; y += 2, a += 2 * aStride, b += 2 * bStride) {
        sums = _mm_add_epi64(sums, _mm_sad_epu8(twoRows(a, aStride), twoRows(b, bStride)));
    }
    return total(sums);
}

#else

uint32_t sum16(const uint8_t* a, ptrdiff_t aStride, const uint8_t* b, ptrdiff_t bStride) {
    return sumAny(a, aStride, b, bStride, 16, 16);
}

uint32_t sum8(const uint8_t* a, ptrdiff_t aStride, const uint8_t* b, ptrdiff_t bStride) {
    return sumAny(a, aStride, b, bStride, 8, 8);
}

#endif

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
    return block.size == 16 ? sum16(a, from.width, b, to.width) : sum8(a, from.width, b, to.width);
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
