// SPDX-License-Identifier: Apache-2.0
#include "qozplay/media/Canvas.h"

#include <png.h>

#include <algorithm>
#include <cctype>
#include <cstring>

#include "qozplay/media/Font.h"

namespace qozplay {
namespace {

void mix(uint8_t* pixel, Colour colour) {
    const auto blend = [&](uint8_t under, uint8_t over) {
        return static_cast<uint8_t>((under * (255 - colour.a) + over * colour.a + 127) / 255);
    };
    pixel[0] = blend(pixel[0], colour.r);
    pixel[1] = blend(pixel[1], colour.g);
    pixel[2] = blend(pixel[2], colour.b);
    pixel[3] = 255;
}

Box clip(Box box, Size size) {
    const int32_t left = std::max(box.x, 0);
    const int32_t top = std::max(box.y, 0);
    const int32_t right = std::min(box.x + box.width, static_cast<int32_t>(size.width));
    const int32_t bottom = std::min(box.y + box.height, static_cast<int32_t>(size.height));
    return {left, top, right - left, bottom - top};
}

const Glyph* glyphOf(char letter) {
    const char capital = static_cast<char>(std::toupper(static_cast<unsigned char>(letter)));
    const auto* found = std::find_if(kGlyphs.begin(), kGlyphs.end(),
                                     [&](const Glyph& glyph) { return glyph.letter == capital; });
    return found == kGlyphs.end() ? nullptr : found;
}

void drawGlyph(const Surface& surface, int32_t x, int32_t y, int32_t scale, const Glyph& glyph,
               Colour colour) {
    for (uint32_t row = 0; row < kGlyphHeight; ++row) {
        for (uint32_t column = 0; column < kGlyphWidth; ++column) {
            if ((glyph.rows[row] >> (kGlyphWidth - 1 - column) & 1) == 0) continue;
            const Box dot{x + static_cast<int32_t>(column) * scale,
                          y + static_cast<int32_t>(row) * scale, scale, scale};
            fill(surface, dot, colour);
        }
    }
}

}  // namespace

void fill(const Surface& surface, Box box, Colour colour) {
    const Box inside = clip(box, surface.size);
    for (int32_t y = 0; y < inside.height; ++y) {
        for (int32_t x = 0; x < inside.width; ++x) {
            mix(surface.at(static_cast<uint32_t>(inside.x + x),
                           static_cast<uint32_t>(inside.y + y)),
                colour);
        }
    }
}

void outline(const Surface& surface, Box box, int32_t thickness, Colour colour) {
    const int32_t inner = box.height - 2 * thickness;
    fill(surface, {box.x, box.y, box.width, thickness}, colour);
    fill(surface, {box.x, box.y + box.height - thickness, box.width, thickness}, colour);
    fill(surface, {box.x, box.y + thickness, thickness, inner}, colour);
    fill(surface, {box.x + box.width - thickness, box.y + thickness, thickness, inner}, colour);
}

void drawText(const Surface& surface, int32_t x, int32_t y, int32_t scale, std::string_view text,
              Colour colour) {
    for (const char letter : text) {
        if (const Glyph* glyph = glyphOf(letter)) drawGlyph(surface, x, y, scale, *glyph, colour);
        x += static_cast<int32_t>(kGlyphAdvance) * scale;
    }
}

int32_t textWidth(std::string_view text, int32_t scale) {
    if (text.empty()) return 0;
    return (static_cast<int32_t>(text.size() * kGlyphAdvance) - 1) * scale;
}

int32_t textHeight(int32_t scale) {
    return static_cast<int32_t>(kGlyphHeight) * scale;
}

void paste(const Surface& surface, int32_t x, int32_t y, const Image& image) {
    const Box inside = clip(
        {x, y, static_cast<int32_t>(image.size.width), static_cast<int32_t>(image.size.height)},
        surface.size);
    if (inside.width <= 0) return;
    for (int32_t row = 0; row < inside.height; ++row) {
        const size_t from = static_cast<size_t>(inside.y + row - y) * image.stride() +
                            size_t{4} * static_cast<size_t>(inside.x - x);
        std::memcpy(
            surface.at(static_cast<uint32_t>(inside.x), static_cast<uint32_t>(inside.y + row)),
            image.pixels.data() + from, size_t{4} * static_cast<size_t>(inside.width));
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
