// SPDX-License-Identifier: Apache-2.0
#include "qozplay/media/SceneArt.h"

#include <algorithm>
#include <cmath>
#include <numbers>

namespace qozplay {
namespace {

constexpr float kTurn = 2 * std::numbers::pi_v<float>;

float hashed(uint32_t x, uint32_t y, uint32_t seed) {
    uint32_t value = x * 0x9E3779B1U ^ y * 0x85EBCA77U ^ seed * 0xC2B2AE3DU;
    value = (value ^ value >> 15) * 0x2C1B3C6DU;
    value = (value ^ value >> 12) * 0x297A2D39U;
    return static_cast<float>((value ^ value >> 15) >> 8) / static_cast<float>(1U << 24);
}

float smooth(float t) {
    return t * t * (3 - 2 * t);
}

// Height of the layer in units of its width: keeps grain as fine down the layer as along it.
float aspectOf(Size size) {
    return static_cast<float>(size.height) / static_cast<float>(size.width);
}

// Three octaves; `cells` across the period.
float grain(float u, float v, uint32_t cells, uint32_t seed) {
    const auto c = static_cast<float>(cells);
    return 0.55F * noise(u * c, v * c, cells, seed) +
           0.30F * noise(u * c * 3, v * c * 3, cells * 3, seed + 1) +
           0.15F * noise(u * c * 9, v * c * 9, cells * 9, seed + 2);
}

Colour shade(Colour colour, float light) {
    const auto channel = [&](uint8_t value) {
        return static_cast<uint8_t>(std::clamp(static_cast<float>(value) * light, 0.0F, 255.0F));
    };
    return {channel(colour.r), channel(colour.g), channel(colour.b), colour.a};
}

Colour between(Colour from, Colour to, float t) {
    const auto channel = [&](uint8_t a, uint8_t b) {
        return static_cast<uint8_t>(std::lerp(static_cast<float>(a), static_cast<float>(b), t));
    };
    return {channel(from.r, to.r), channel(from.g, to.g), channel(from.b, to.b),
            channel(from.a, to.a)};
}

// Calls `colourAt(u, v, x, y)` for every texel, u and v from 0 to 1.
template <typename ColourAt>
void paint(Image* image, ColourAt colourAt) {
    const Surface surface = image->surface();
    for (uint32_t y = 0; y < image->size.height; ++y) {
        const float v = (static_cast<float>(y) + 0.5F) / static_cast<float>(image->size.height);
        for (uint32_t x = 0; x < image->size.width; ++x) {
            const float u = (static_cast<float>(x) + 0.5F) / static_cast<float>(image->size.width);
            const Colour colour = colourAt(u, v, x, y);
            uint8_t* texel = surface.at(x, y);
            texel[0] = colour.r;
            texel[1] = colour.g;
            texel[2] = colour.b;
            texel[3] = colour.a;
        }
    }
}

// Alpha that falls from 255 to 0 within two texels around `edge`, so turned edges do not crawl.
uint8_t coverage(float radius, float edge, uint32_t side) {
    const float texel = 2.0F / static_cast<float>(side);
    return static_cast<uint8_t>(std::clamp((edge - radius) / texel + 0.5F, 0.0F, 1.0F) * 255);
}

}  // namespace

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

Layer paintSky(Size size) {
    Layer layer{Image(size), {}};
    paint(&layer.image, [&](float u, float v, uint32_t x, uint32_t y) {
        const Colour air = between({18, 24, 62}, {246, 150, 92}, v * v);
        const float cloud =
            smooth(std::clamp(grain(u, v * 1.5F, 8, 11) * 2.2F - 0.85F, 0.0F, 1.0F));
        Colour colour = between(air, {255, 226, 205}, 0.65F * cloud * (0.35F + 0.65F * v));
        const bool star = hashed(x / 2, y / 2, 5) > 0.9985F;
        if (star && v < 0.55F) colour = between(colour, {255, 255, 240}, 0.9F * (1 - cloud));
        return colour;
    });
    return layer;
}

Layer paintRidge(Size size, float base, float relief, Colour rock, uint32_t seed) {
    Layer layer{Image(size), std::vector<uint32_t>(size.width)};
    const float aspect = aspectOf(size);
    const auto height = static_cast<float>(size.height);
    for (uint32_t x = 0; x < size.width; ++x) {
        const float u = static_cast<float>(x) / static_cast<float>(size.width);
        const float peak = std::sin(u * kTurn * 3 + static_cast<float>(seed)) * 0.3F +
                           std::sin(u * kTurn * 7) * 0.2F + grain(u, 0, 12, seed) - 0.5F;
        layer.top[x] = static_cast<uint32_t>(std::clamp(base - relief * peak, 0.0F, 1.0F) * height);
    }
    paint(&layer.image, [&](float u, float v, uint32_t x, uint32_t y) {
        const float depth = static_cast<float>(y) - static_cast<float>(layer.top[x]);
        const float snow = std::clamp(1 - depth / (0.035F * height), 0.0F, 0.7F);
        const float strata =
            0.12F * std::sin(v * 90 + 5 * noise(u * 24, v * aspect * 24, 24, seed));
        return between(shade(rock, 0.55F + 0.9F * grain(u, v * aspect, 40, seed + 9) + strata),
                       {235, 235, 250}, snow);
    });
    return layer;
}

Layer paintGround(Size size) {
    Layer layer{Image(size), {}};
    const float aspect = aspectOf(size);
    paint(&layer.image, [&](float u, float v, uint32_t, uint32_t) {
        const float turf = 0.5F + 0.9F * grain(u, v * aspect, 64, 31);
        const bool tile = (static_cast<uint32_t>(u * 32) + static_cast<uint32_t>(v * 5)) % 2 == 0;
        const Colour grass = tile ? Colour{58, 118, 62} : Colour{74, 140, 70};
        const bool lane = v > 0.42F && v < 0.72F;
        const bool dash = lane && std::abs(v - 0.57F) < 0.02F && std::fmod(u * 16, 1.0F) < 0.5F;
        if (dash) return shade({240, 214, 120}, 0.7F + 0.3F * turf);
        return shade(lane ? Colour{92, 88, 96} : grass, turf);
    });
    return layer;
}

Image paintCrate(uint32_t side) {
    Image image({side, side});
    paint(&image, [&](float u, float v, uint32_t, uint32_t) {
        const float x = 2 * u - 1;
        const float y = 2 * v - 1;
        const float edge = std::max(std::abs(x), std::abs(y));
        const bool frame = edge > 0.72F && edge < 0.93F;
        const bool brace = std::abs(std::abs(x) - std::abs(y)) < 0.12F && x * y < 0;
        const float plank = std::fmod(v * 5, 1.0F) < 0.08F ? 0.45F : 1.0F;
        const float wood = 0.65F + 0.6F * noise(u * 4, v * 32, 4, 41);
        Colour colour = shade(frame || brace ? Colour{206, 152, 84} : Colour{150, 98, 52},
                              wood * (frame || brace ? 1.0F : plank));
        colour.a = coverage(edge, 0.94F, side);
        return colour;
    });
    return image;
}

Image paintGear(uint32_t side) {
    Image image({side, side});
    paint(&image, [&](float u, float v, uint32_t, uint32_t) {
        const float x = 2 * u - 1;
        const float y = 2 * v - 1;
        const float radius = std::hypot(x, y);
        const float tooth = std::sin(std::atan2(y, x) * 9);
        const float rim = 0.82F + 0.1F * std::clamp(tooth * 4, -1.0F, 1.0F);
        const float brushed = 0.75F + 0.35F * noise(radius * 26 + 4, 3 + 2 * tooth, 64, 51);
        const bool spoke = radius < 0.6F && std::sin(std::atan2(y, x) * 5) > 0.35F;
        Colour colour = shade(spoke ? Colour{70, 88, 120} : Colour{150, 176, 204}, brushed);
        if (radius < 0.22F) colour = shade({226, 92, 70}, brushed);
        colour.a = coverage(radius, rim, side);
        return colour;
    });
    return image;
}

Image paintBall(uint32_t side) {
    Image image({side, side});
    paint(&image, [&](float u, float v, uint32_t, uint32_t) {
        const float x = 2 * u - 1;
        const float y = 2 * v - 1;
        const float radius = std::hypot(x, y);
        const auto sector = static_cast<int>(std::floor((std::atan2(y, x) / kTurn + 0.5F) * 10));
        const bool light = (sector + static_cast<int>(radius * 3.2F)) % 2 == 0;
        const float round = std::sqrt(std::max(0.0F, 1 - radius * radius));
        Colour colour =
            shade(light ? Colour{250, 240, 226} : Colour{214, 54, 88}, 0.5F + 0.5F * round);
        colour.a = coverage(radius, 0.95F, side);
        return colour;
    });
    return image;
}

}  // namespace qozplay
