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

// Mixes the colour into a pixel by its alpha.
void mix(uint8_t* pixel, Colour colour);

// The same with all pixels of the box that the surface has.
void fill(const Surface& surface, Box box, Colour colour);

// A letter is 7 dots high, and the next one begins 6 dots after it; `dot` is a dot's side in
// pixels. A letter that the font does not have leaves its place empty.
constexpr int32_t kLetterHeight = 7;
constexpr int32_t kLetterAdvance = 6;
void drawText(const Surface& surface, int32_t x, int32_t y, int32_t dot, std::string_view text,
              Colour colour);

// None: there is no such picture.
std::optional<Image> readPng(const std::string& path);

// False: cannot write.
bool writePng(const Image& image, const std::string& path);

}  // namespace qozplay
