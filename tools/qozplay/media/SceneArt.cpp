// SPDX-License-Identifier: Apache-2.0
#include "qozplay/media/SceneArt.h"

#include <algorithm>
#include <cmath>
#include <numbers>

namespace qozplay {
namespace {

constexpr float kTurn = 2 * std::numbers::pi_v<float>;

// A pseudo-random number from 0 to 1 that depends only on the arguments.
float hashed(uint32_t x, uint32_t y, uint32_t seed) {
    uint32_t value = x * 0x9E3779B1U ^ y * 0x85EBCA77U ^ seed * 0xC2B2AE3DU;
    value = (value ^ value >> 15) * 0x2C1B3C6DU;
    value = (value ^ value >> 12) * 0x297A2D39U;
    return static_cast<float>((value ^ value >> 15) >> 8) / static_cast<float>(1U << 24);
}

float smooth(float t) {
    return t * t * (3 - 2 * t);
}

// Smooth noise from 0 to 1. In x it repeats after `period` cells.
float noise(float x, float y, uint32_t period, uint32_t seed) {
    const float left = std::floor(x);
    const float up = std::floor(y);
    const auto column = static_cast<uint32_t>(left) % period;
    const uint32_t next = (column + 1) % period;
    const auto row = static_cast<uint32_t>(up);
    const float tx = smooth(x - left);
    return std::lerp(std::lerp(hashed(column, row, seed), hashed(next, row, seed), tx),
                     std::lerp(hashed(column, row + 1, seed), hashed(next, row + 1, seed), tx),
                     smooth(y - up));
}

// Noise of three octaves, the coarsest of which has `cells` cells across the picture.
float grain(float u, float v, uint32_t cells, uint32_t seed) {
    const auto c = static_cast<float>(cells);
    return 0.55F * noise(u * c, v * c, cells, seed) +
           0.30F * noise(u * c * 3, v * c * 3, cells * 3, seed + 1) +
           0.15F * noise(u * c * 9, v * c * 9, cells * 9, seed + 2);
}

// Multiplies the brightness of a colour by `light`.
Colour shade(Colour colour, float light) {
    const auto channel = [&](uint8_t value) {
        return static_cast<uint8_t>(std::clamp(static_cast<float>(value) * light, 0.0F, 255.0F));
    };
    return {channel(colour.r), channel(colour.g), channel(colour.b), colour.a};
}

// Creates an image from the function colourAt(u, v). Across the width u runs from 0 to 1; v has the
// same scale, so that it reaches heightOf(size) at the bottom.
template <typename ColourAt>
Image painted(Size size, ColourAt colourAt) {
    Image image(size);
    const auto width = static_cast<float>(size.width);
    for (uint32_t y = 0; y < size.height; ++y) {
        for (uint32_t x = 0; x < size.width; ++x) {
            const Colour colour = colourAt((static_cast<float>(x) + 0.5F) / width,
                                           (static_cast<float>(y) + 0.5F) / width);
            uint8_t* texel = image.surface().at(x, y);
            mix(texel, {colour.r, colour.g, colour.b});
            texel[3] = colour.a;
        }
    }
    return image;
}

// The height of an image in units of its width.
float heightOf(Size size) {
    return static_cast<float>(size.height) / static_cast<float>(size.width);
}

// The alpha of a texel at `radius` in a sprite that ends at `edge`. It falls from 255 to 0 within
// one texel around the edge, so that the edge of a rotating sprite does not flicker.
uint8_t coverage(float radius, float edge, uint32_t side) {
    const float texel = 2.0F / static_cast<float>(side);
    return static_cast<uint8_t>(std::clamp((edge - radius) / texel + 0.5F, 0.0F, 1.0F) * 255);
}

}  // namespace

Image paintSky(Size size) {
    return painted(size, [height = heightOf(size)](float u, float v) {
        const float light = 0.3F + 0.7F * v / height;
        return shade({246, 190, 160}, light * (0.5F + grain(u, v, 8, 11)));
    });
}

Image paintRidge(Size size, float base, float relief, Colour rock, uint32_t seed) {
    std::vector<float> line(size.width);
    for (uint32_t x = 0; x < size.width; ++x) {
        const float u = static_cast<float>(x) / static_cast<float>(size.width);
        const float peak = std::sin(u * kTurn * 3 + static_cast<float>(seed)) * 0.3F +
                           std::sin(u * kTurn * 7) * 0.2F + grain(u, 0, 12, seed) - 0.5F;
        line[x] = (base - relief * peak) * heightOf(size);
    }
    return painted(size, [&](float u, float v) {
        if (v < line[static_cast<size_t>(u * static_cast<float>(size.width))])
            return Colour{.a = 0};
        return shade(rock, 0.5F + grain(u, v, 40, seed + 9));
    });
}

Image paintGround(Size size) {
    return painted(size, [height = heightOf(size)](float u, float v) {
        const float down = v / height;
        const bool road = down > 0.42F && down < 0.72F;
        const bool dash = std::abs(down - 0.57F) < 0.02F && std::fmod(u * 16, 1.0F) < 0.5F;
        const bool tile = static_cast<int>(u * 32 + std::floor(down * 5)) % 2 == 0;
        Colour colour = tile ? Colour{58, 118, 62} : Colour{74, 140, 70};
        if (road) colour = dash ? Colour{240, 214, 120} : Colour{92, 88, 96};
        return shade(colour, 0.5F + 0.9F * grain(u, v, 64, 31));
    });
}

Image paintCrate(uint32_t side) {
    return painted({side, side}, [side](float u, float v) {
        const float x = 2 * u - 1;
        const float y = 2 * v - 1;
        const float edge = std::max(std::abs(x), std::abs(y));
        const bool brace = edge > 0.72F || (std::abs(std::abs(x) - std::abs(y)) < 0.12F);
        Colour colour = shade(brace ? Colour{206, 152, 84} : Colour{150, 98, 52},
                              0.65F + 0.6F * noise(u * 4, v * 32, 4, 41));
        colour.a = coverage(edge, 0.94F, side);
        return colour;
    });
}

Image paintBall(uint32_t side) {
    return painted({side, side}, [side](float u, float v) {
        const float x = 2 * u - 1;
        const float y = 2 * v - 1;
        const float radius = std::hypot(x, y);
        const auto sector = static_cast<int>((std::atan2(y, x) / kTurn + 0.5F) * 10);
        const bool light = (sector + static_cast<int>(radius * 3.2F)) % 2 == 0;
        Colour colour = shade(light ? Colour{250, 240, 226} : Colour{214, 54, 88},
                              0.5F + 0.5F * std::sqrt(std::max(0.0F, 1 - radius * radius)));
        colour.a = coverage(radius, 0.95F, side);
        return colour;
    });
}

}  // namespace qozplay
