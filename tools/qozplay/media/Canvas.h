// SPDX-License-Identifier: Apache-2.0
// Drawing on RGBA pixels.
#pragma once

#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "qozplay/media/Types.h"

namespace qozplay {

struct Colour {
    uint8_t r = 0;
    uint8_t g = 0;
    uint8_t b = 0;
    uint8_t a = 255;
};

// Of the pictures' margins, and of the words on them.
constexpr Colour kGround{22, 24, 29};
constexpr Colour kInk{232, 234, 240};

// Pixels that belong to somebody else.
struct Surface {
    uint8_t* rgba = nullptr;
    size_t stride = 0;  // bytes
    Size size;

    uint8_t* at(uint32_t x, uint32_t y) const { return rgba + y * stride + size_t{4} * x; }
};

struct Image {
    explicit Image(Size imageSize)
        : size(imageSize), pixels(size_t{4} * imageSize.width * imageSize.height) {}

    size_t stride() const { return size_t{4} * size.width; }
    Surface surface() { return {pixels.data(), stride(), size}; }

    Size size;
    std::vector<uint8_t> pixels;
};

struct Box {
    int32_t x = 0;
    int32_t y = 0;
    int32_t width = 0;
    int32_t height = 0;
};

// Both mix the colour in by its alpha and leave out what lies beyond the surface.
void fill(const Surface& surface, Box box, Colour colour);
void outline(const Surface& surface, Box box, int32_t thickness, Colour colour);

// Small letters are drawn as capitals; `scale` is the side of a dot in pixels.
void drawText(const Surface& surface, int32_t x, int32_t y, int32_t scale, std::string_view text,
              Colour colour);
int32_t textWidth(std::string_view text, int32_t scale);
int32_t textHeight(int32_t scale);

// Places `image` with its upper left corner at x, y.
void paste(const Surface& surface, int32_t x, int32_t y, const Image& image);

// None: there is no such picture.
std::optional<Image> readPng(const std::string& path);

// False: cannot write.
bool writePng(const Image& image, const std::string& path);

}  // namespace qozplay
