// SPDX-License-Identifier: Apache-2.0
// Drawing on RGBA pixels, and PNG files.
#pragma once

#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "qozplay/media/Types.h"

namespace qozplay {

// A colour with 8 bits per channel. An alpha of 255 is opaque.
struct Colour {
    uint8_t r = 0;
    uint8_t g = 0;
    uint8_t b = 0;
    uint8_t a = 255;
};

// RGBA pixels to draw on. A surface does not own them.
struct Surface {
    uint8_t* rgba = nullptr;
    size_t stride = 0;  // bytes
    Size size;

    uint8_t* at(uint32_t x, uint32_t y) const { return rgba + y * stride + size_t{4} * x; }
};

// RGBA pixels that the object owns, in rows without padding.
struct Image {
    explicit Image(Size imageSize)
        : size(imageSize), pixels(size_t{4} * imageSize.width * imageSize.height) {}

    size_t stride() const { return size_t{4} * size.width; }
    Surface surface() { return {pixels.data(), stride(), size}; }

    Size size;
    std::vector<uint8_t> pixels;
};

// A rectangle in pixels. It may extend beyond the surface on which it is drawn.
struct Box {
    int32_t x = 0;
    int32_t y = 0;
    int32_t width = 0;
    int32_t height = 0;
};

// Blends the colour over a pixel by the colour's alpha. The pixel becomes opaque.
void mix(uint8_t* pixel, Colour colour);

// Blends the colour over all pixels of the box that lie within the surface.
void fill(const Surface& surface, Box box, Colour colour);

// Draws a text with its upper left corner at (x, y). A letter is kLetterHeight dots high, and the
// next one begins kLetterAdvance dots to the right; `dot` is the side of a dot in pixels. For a
// letter that the font does not have, a gap remains.
constexpr int32_t kLetterHeight = 7;
constexpr int32_t kLetterAdvance = 6;
void drawText(const Surface& surface, int32_t x, int32_t y, int32_t dot, std::string_view text,
              Colour colour);

// Returns nullopt if the file cannot be read as PNG.
std::optional<Image> readPng(const std::string& path);

// Returns false if the file cannot be written.
bool writePng(const Image& image, const std::string& path);

}  // namespace qozplay
