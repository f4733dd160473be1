// SPDX-License-Identifier: Apache-2.0
#include "qozplay/media/Canvas.h"

#include <png.h>

#include <algorithm>

#include "qozplay/media/Font.h"

namespace qozplay {

void mix(uint8_t* pixel, Colour colour) {
    const auto blend = [&](uint8_t under, uint8_t over) {
        return static_cast<uint8_t>((under * (255 - colour.a) + over * colour.a + 127) / 255);
    };
    pixel[0] = blend(pixel[0], colour.r);
    pixel[1] = blend(pixel[1], colour.g);
    pixel[2] = blend(pixel[2], colour.b);
    pixel[3] = 255;
}

void fill(const Surface& surface, Box box, Colour colour) {
    const auto inside = [](int32_t at, uint32_t side) {
        return static_cast<uint32_t>(std::clamp(at, 0, static_cast<int32_t>(side)));
    };
    const uint32_t right = inside(box.x + box.width, surface.size.width);
    const uint32_t bottom = inside(box.y + box.height, surface.size.height);
    for (uint32_t y = inside(box.y, surface.size.height); y < bottom; ++y) {
        for (uint32_t x = inside(box.x, surface.size.width); x < right; ++x)
            mix(surface.at(x, y), colour);
    }
}

void drawText(const Surface& surface, int32_t x, int32_t y, int32_t dot, std::string_view text,
              Colour colour) {
    for (const char letter : text) {
        const auto* glyph = std::ranges::find(kGlyphs, letter, &Glyph::letter);
        for (int32_t i = 0; glyph != kGlyphs.end() && i < 5 * kLetterHeight; ++i) {
            const int32_t row = i / 5;
            const int32_t column = i % 5;
            if ((glyph->rows.at(static_cast<size_t>(row)) >> (4 - column) & 1) == 0) continue;
            fill(surface, {x + column * dot, y + row * dot, dot, dot}, colour);
        }
        x += kLetterAdvance * dot;
    }
}

std::optional<Image> readPng(const std::string& path) {
    png_image png{};
    png.version = PNG_IMAGE_VERSION;
    if (png_image_begin_read_from_file(&png, path.c_str()) == 0) return std::nullopt;
    png.format = PNG_FORMAT_RGBA;
    Image image({png.width, png.height});
    const bool read = png_image_finish_read(&png, nullptr, image.pixels.data(),
                                            static_cast<png_int_32>(image.stride()), nullptr) != 0;
    if (!read) return std::nullopt;
    return image;
}

bool writePng(const Image& image, const std::string& path) {
    png_image png{};
    png.version = PNG_IMAGE_VERSION;
    png.width = image.size.width;
    png.height = image.size.height;
    png.format = PNG_FORMAT_RGBA;
    return png_image_write_to_file(&png, path.c_str(), 0, image.pixels.data(),
                                   static_cast<png_int_32>(image.stride()), nullptr) != 0;
}

}  // namespace qozplay
