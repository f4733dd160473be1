// SPDX-License-Identifier: Apache-2.0
#include "qozplay/media/Scene.h"

#include <algorithm>
#include <bit>
#include <cmath>
#include <cstring>

namespace qozplay {
namespace {

constexpr float kHorizon = 0.66F;    // of the height
constexpr uint32_t kSprite = 192;    // texels a side
constexpr float kGroundSpeed = 11;   // pixels a frame at the bottom row
constexpr uint64_t kCutAfter = 120;  // frames
constexpr float kCutLeap = 1700;     // pixels of travel
constexpr float kDistance = 2.2F;    // how much smaller, and slower, the horizon is

struct Placement {
    float x;  // centre, pixels
    float y;
    float radius;  // pixels
    float angle;   // radians
};

// Bilinear, with the texel's own alpha over what is there.
void blendTexel(uint8_t* pixel, const Image& sprite, float u, float v) {
    const auto limit = static_cast<float>(sprite.size.width - 2);
    const float x = std::clamp(u, 0.0F, limit);
    const float y = std::clamp(v, 0.0F, limit);
    const auto column = static_cast<size_t>(x);
    const auto row = static_cast<size_t>(y);
    const float tx = x - static_cast<float>(column);
    const float ty = y - static_cast<float>(row);
    const uint8_t* upper = sprite.pixels.data() + row * sprite.stride() + 4 * column;
    const uint8_t* lower = upper + sprite.stride();
    const auto sample = [&](int channel) {
        return std::lerp(std::lerp(float(upper[channel]), float(upper[channel + 4]), tx),
                         std::lerp(float(lower[channel]), float(lower[channel + 4]), tx), ty);
    };
    const float alpha = sample(3) / 255;
    for (int channel = 0; channel < 3; ++channel) {
        pixel[channel] =
            static_cast<uint8_t>(std::lerp(float(pixel[channel]), sample(channel), alpha));
    }
}

// Walks the pixels around the sprite and looks each one up in the turned texture.
void drawSprite(const Surface& surface, const Image& sprite, const Placement& place) {
    const float reach = place.radius * 1.42F;  // the corner of a turned square
    const auto first = [&](float centre) {
        return static_cast<uint32_t>(std::max(0.0F, centre - reach));
    };
    const auto last = [&](float centre, uint32_t side) {
        return static_cast<uint32_t>(std::clamp(centre + reach, 0.0F, static_cast<float>(side)));
    };
    const float texels = static_cast<float>(sprite.size.width) / (2 * place.radius);
    const float cosine = std::cos(place.angle) * texels;
    const float sine = std::sin(place.angle) * texels;
    const float middle = static_cast<float>(sprite.size.width) / 2;
    for (uint32_t y = first(place.y); y < last(place.y, surface.size.height); ++y) {
        const float dy = static_cast<float>(y) - place.y;
        for (uint32_t x = first(place.x); x < last(place.x, surface.size.width); ++x) {
            const float dx = static_cast<float>(x) - place.x;
            const float u = middle + dx * cosine + dy * sine;
            const float v = middle - dx * sine + dy * cosine;
            const float edge = 2 * middle - 1;
            if (u < 0 || v < 0 || u > edge || v > edge) continue;
            blendTexel(surface.at(x, y), sprite, u, v);
        }
    }
}

// One row of a layer with `step` texels to the pixel, its middle showing texel `centre`.
void copyRowScaled(uint8_t* out, uint32_t width, const uint8_t* row, uint32_t tileWidth,
                   float centre, float step) {
    constexpr float kOne = 256;  // positions in 256ths of a texel, wrapping with the tile
    const uint32_t mask = tileWidth - 1;
    const auto stride = static_cast<uint32_t>(step * kOne);
    const auto middle = static_cast<uint32_t>(static_cast<uint64_t>(centre * kOne));
    uint32_t position = middle - width / 2 * stride;
    for (uint32_t x = 0; x < width; ++x, position += stride) {
        const uint8_t* left = row + size_t{4} * ((position >> 8) & mask);
        const uint8_t* right = row + size_t{4} * (((position >> 8) + 1) & mask);
        const uint32_t weight = position & 255;
        for (uint32_t channel = 0; channel < 4; ++channel) {
            out[4 * x + channel] = static_cast<uint8_t>(
                (left[channel] * (256 - weight) + right[channel] * weight) >> 8);
        }
    }
}

}  // namespace

Scene::Scene(Size size, Rate rate, uint64_t frames)
    : mSize(size),
      mRate(rate),
      mFrames(frames),
      mScale(static_cast<float>(size.height) / 720),
      mHorizon(static_cast<uint32_t>(kHorizon * static_cast<float>(size.height))),
      mTileWidth(std::bit_ceil(size.width)),
      mSky(paintSky({mTileWidth, mHorizon})),
      mFarRidge(paintRidge({mTileWidth, mHorizon}, 0.68F, 0.42F, {92, 84, 128}, 3)),
      mNearRidge(paintRidge({mTileWidth, mHorizon}, 0.86F, 0.34F, {66, 74, 84}, 17)),
      mGround(paintGround({mTileWidth, size.height - mHorizon})),
      mCrate(paintCrate(kSprite)),
      mGear(paintGear(kSprite)),
      mBall(paintBall(kSprite)) {}

float Scene::moved(float speed) const {
    const auto cuts = mFrame / kCutAfter;
    const auto leaps = static_cast<float>(cuts);
    return mScale * (speed * static_cast<float>(mFrame) + leaps * kCutLeap);
}

int32_t Scene::scaled(float pixels) const {
    return static_cast<int32_t>(std::lround(pixels * mScale));
}

void Scene::drawLayer(const Surface& surface, const Layer& layer, float speed) const {
    const uint32_t mask = mTileWidth - 1;
    const auto shift = static_cast<uint32_t>(std::lround(moved(speed))) & mask;
    for (uint32_t y = 0; y < mHorizon; ++y) {
        const uint8_t* row = layer.image.pixels.data() + y * layer.image.stride();
        if (layer.top.empty()) {
            const size_t head = std::min(mSize.width, mTileWidth - shift);
            std::memcpy(surface.at(0, y), row + size_t{4} * shift, 4 * head);
            std::memcpy(surface.at(0, y) + 4 * head, row, 4 * (mSize.width - head));
            continue;
        }
        for (uint32_t x = 0; x < mSize.width; ++x) {
            const uint32_t column = (x + shift) & mask;
            if (y < layer.top[column]) continue;
            std::memcpy(surface.at(x, y), row + size_t{4} * column, 4);
        }
    }
}

void Scene::drawGround(const Surface& surface) const {
    const uint32_t rows = mSize.height - mHorizon;
    for (uint32_t y = 0; y < rows; ++y) {
        const float near = static_cast<float>(y) / static_cast<float>(rows);
        copyRowScaled(surface.at(0, mHorizon + y), mSize.width,
                      mGround.image.pixels.data() + y * mGround.image.stride(), mTileWidth,
                      moved(kGroundSpeed), std::lerp(kDistance, 1.0F, near));
    }
}

void Scene::drawObjects(const Surface& surface) const {
    const auto shown = mFrame + mFrame / kCutAfter * kCutAfter;
    const auto time = static_cast<float>(shown);
    const auto width = static_cast<float>(mSize.width);
    const auto height = static_cast<float>(mSize.height);
    const auto sway = [&](float centre, float reach, float speed, float phase) {
        return centre + reach * std::sin(speed * time + phase);
    };
    drawSprite(surface, mGear,
               {sway(0.27F, 0.13F, 0.041F, 0.6F) * width, sway(0.36F, 0.16F, 0.053F, 0.0F) * height,
                0.15F * height, 0.05F * time});
    drawSprite(surface, mCrate,
               {sway(0.62F, 0.22F, 0.037F, 1.9F) * width, sway(0.56F, 0.12F, 0.047F, 0.9F) * height,
                0.11F * height, -0.035F * time});
    drawSprite(surface, mCrate,
               {sway(0.70F, 0.16F, 0.049F, 4.1F) * width, sway(0.30F, 0.12F, 0.044F, 2.3F) * height,
                0.07F * height, 0.06F * time});
    // Rolls along the road: turns as far as it travels.
    const float radius = 0.085F * height;
    const float road = sway(0.45F, 0.30F, 0.030F, 3.0F) * width;
    drawSprite(surface, mBall, {road, 0.83F * height, radius, road / radius});
}

void Scene::drawDisplay(const Surface& surface) const {
    const int32_t dot = std::max(1, scaled(3));
    const int32_t margin = scaled(22);
    const std::string counter = format("FRAME %05llu", static_cast<unsigned long long>(mFrame));
    const Box plate{margin, margin, textWidth(counter, dot) + 2 * margin,
                    2 * textHeight(dot) + scaled(34)};
    fill(surface, plate, {12, 14, 24, 150});
    outline(surface, plate, std::max(1, scaled(2)), {240, 240, 255, 190});
    drawText(surface, plate.x + margin, plate.y + scaled(12), dot, counter, {255, 255, 255});
    const Box bar{plate.x + margin, plate.y + scaled(22) + textHeight(dot), textWidth(counter, dot),
                  textHeight(dot)};
    fill(surface, bar, {70, 20, 30, 220});
    fill(surface, {bar.x, bar.y, bar.width * 7 / 10, bar.height}, {232, 70, 84});

    const int32_t side = scaled(132);
    const Box map{static_cast<int32_t>(mSize.width) - side - margin, margin, side, side};
    fill(surface, map, {12, 14, 24, 150});
    outline(surface, map, std::max(1, scaled(2)), {240, 240, 255, 190});
    for (int32_t i = 1; i < 4; ++i) {
        fill(surface, {map.x + map.width * i / 4, map.y, 1, map.height}, {240, 240, 255, 70});
        fill(surface, {map.x, map.y + map.height * i / 4, map.width, 1}, {240, 240, 255, 70});
    }
    fill(surface, {map.x + side / 2 - dot, map.y + side / 2 - dot, 2 * dot, 2 * dot},
         {120, 240, 150});
}

// One pixel thick whatever the size: a sight in the middle and a gauge over the road.
void Scene::drawThinLines(const Surface& surface) const {
    constexpr Colour kLight{236, 240, 255, 255};
    const auto width = static_cast<int32_t>(mSize.width);
    const auto height = static_cast<int32_t>(mSize.height);
    const int32_t arm = scaled(46);
    const int32_t gap = scaled(12);
    for (const int32_t from : {-arm, gap}) {
        fill(surface, {width / 2 + from, height / 2, arm - gap, 1}, kLight);
        fill(surface, {width / 2, height / 2 + from, 1, arm - gap}, kLight);
    }
    const int32_t length = scaled(420);
    const Box gauge{(width - length) / 2, height - scaled(70), length, 1};
    fill(surface, gauge, kLight);
    for (int32_t i = 0; i <= 20; ++i) {
        const int32_t tick = scaled(i % 5 == 0 ? 22 : 10);
        fill(surface, {gauge.x + length * i / 20, gauge.y - tick, 1, tick}, kLight);
    }
}

bool Scene::next(uint8_t* rgba, size_t stride) {
    if (mFrame == mFrames) return false;
    const Surface surface{rgba, stride, mSize};
    drawLayer(surface, mSky, 1);
    drawLayer(surface, mFarRidge, 2);
    drawLayer(surface, mNearRidge, 4);
    drawGround(surface);
    drawObjects(surface);
    drawDisplay(surface);
    drawThinLines(surface);
    ++mFrame;
    return true;
}

}  // namespace qozplay
