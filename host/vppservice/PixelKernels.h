// SPDX-License-Identifier: Apache-2.0
// The loops over the pixels of frames, compiled for each vector extension and chosen at run time.
#pragma once

#include <cstddef>
#include <cstdint>

namespace qoz::host::vppservice {

// What lies half way between from[i] and from[i + step], of six pixels `step` apart.
void halfPixels(const uint8_t* from, ptrdiff_t step, uint8_t* to, size_t count);

// Two planes whose mean is meant.
struct PixelPair {
    const uint8_t* first;
    const uint8_t* second;
};

// Sum of absolute differences between a and b over every second row of 16x16 pixels.
uint32_t windowDifference(PixelPair a, PixelPair b, ptrdiff_t stride);

// The same, less the difference of the windows' means: a light that goes on is no difference.
uint32_t windowDifferenceOfShapes(PixelPair a, PixelPair b, ptrdiff_t stride);

// to = from + from * gain / 256 + offset, saturated.
void changeBrightness(const uint8_t* from, uint8_t* to, size_t count, int gain, int offset);

constexpr int kWholeShare = 64;  // both sources' shares of a pixel

// One prediction of an 8-pixel-wide tile: from both sources, each with its share.
struct TileSource {
    PixelPair older;
    PixelPair newer;
    int newerShare;  // of kWholeShare
};

// `count` pixels by `rows`, all predicted alike.
void writeSpan(const TileSource& source, ptrdiff_t stride, uint8_t* to, ptrdiff_t toStride,
               size_t count, int rows);

// A tile of 8 x `rows` pixels between four nodes: top left, top right, bottom left, bottom right,
// each pixel mixed of all four predictions by its distance. `tall` is the rows between two nodes.
void mixTile(const TileSource (&sources)[4], ptrdiff_t stride, uint8_t* to, ptrdiff_t toStride,
             int rows);

// The same where the four move apart: by distance, and the more by how well the two sources of a
// prediction agree at each pixel.
void weighTile(const TileSource (&sources)[4], ptrdiff_t stride, uint8_t* to, ptrdiff_t toStride,
               int rows);

// Eight by eight pixels of both sources: where they are, and where the motion around leads from the
// other source: `olderMoved` shows what would be at `newer`, and the other way round.
struct StillTile {
    const uint8_t* older;
    const uint8_t* newer;
    const uint8_t* olderMoved;
    const uint8_t* newerMoved;
};
// Marks with 255 what is the same in both sources and what the motion explains in neither; says
// whether there is any.
bool markStill(const StillTile& tile, ptrdiff_t stride, uint8_t* mask, ptrdiff_t maskStride);

// Interleaved chroma, both bytes of a sample alike; places are eighths of a sample.
struct ChromaSource {
    const uint8_t* older;
    const uint8_t* newer;
    int olderX, olderY;  // eighths right and down of the pointers
    int newerX, newerY;
    int newerShare;
};
void writeChroma(const ChromaSource& source, ptrdiff_t stride, uint8_t* to, ptrdiff_t toStride,
                 size_t count, int rows);
void mixChroma(const ChromaSource (&sources)[4], ptrdiff_t stride, uint8_t* to, ptrdiff_t toStride,
               int rows);

}  // namespace qoz::host::vppservice
