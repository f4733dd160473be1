// SPDX-License-Identifier: Apache-2.0
#include "qozplay/media/Scene.h"

#include <algorithm>
#include <bit>
#include <cmath>
#include <cstring>

#include "qozplay/media/SceneArt.h"

namespace qozplay {
namespace {

constexpr float kHorizon = 0.66F;    // as a fraction of the height
constexpr uint32_t kSprite = 192;    // side of a sprite in texels
constexpr uint64_t kCutAfter = 120;  // frames between cuts
constexpr float kCutLeap = 1700;     // distance that a cut adds, in pixels of a 720-row scene

// Samples the sprite bilinearly at (u, v) and blends the result over the pixel by its alpha.
void blendTexel(uint8_t* pixel, const Image& sprite, float u, float v) {
    const auto column = static_cast<size_t>(u);
    const auto row = static_cast<size_t>(v);
    const float tx = u - static_cast<float>(column);
    const float ty = v - static_cast<float>(row);
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

// Draws one row of a layer at a scale of `step` texels per pixel, so that the centre of the row
// shows texel `centre`.
void copyRowScaled(uint8_t* out, uint32_t width, const uint8_t* row, uint32_t tileWidth,
                   float centre, float step) {
    constexpr float kOne = 256;  // positions are in 1/256 texel and wrap around at the tile's width
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

Scene::Scene(Size size, AVRational rate, uint64_t frames)
    : mHorizon(static_cast<uint32_t>(kHorizon * static_cast<float>(size.height))),
      mTileWidth(std::bit_ceil(size.width)),
      mSky(paintSky({mTileWidth, mHorizon})),
      mFarRidge(paintRidge({mTileWidth, mHorizon}, 0.68F, 0.42F, {92, 84, 128}, 3)),
      mNearRidge(paintRidge({mTileWidth, mHorizon}, 0.86F, 0.34F, {66, 74, 84}, 17)),
      mGround(paintGround({mTileWidth, size.height - mHorizon})),
      mCrate(paintCrate(kSprite)),
      mBall(paintBall(kSprite)) {
    mInfo = {.size = size, .rate = rate, .length = frames};
}

float Scene::moved(float speed) const {
    const uint64_t cutsBefore = mFrame / kCutAfter;
    const auto cuts = static_cast<float>(cutsBefore);
    const float pixels = speed * static_cast<float>(mFrame) + cuts * kCutLeap;
    return pixels * static_cast<float>(mInfo.size.height) / 720;
}

int32_t Scene::scaled(float pixels) const {
    return static_cast<int32_t>(std::lround(pixels * static_cast<float>(mInfo.size.height) / 720));
}

// Draws a scrolling layer above the horizon. It moves by whole pixels, so that it remains sharp.
void Scene::drawLayer(const Surface& surface, const Image& layer, float speed) const {
    const auto shift = static_cast<uint32_t>(std::lround(moved(speed)));
    for (uint32_t y = 0; y < mHorizon; ++y) {
        const uint8_t* row = layer.pixels.data() + y * layer.stride();
        for (uint32_t x = 0; x < surface.size.width; ++x) {
            const uint8_t* texel = row + size_t{4} * ((x + shift) & (mTileWidth - 1));
            if (texel[3] != 0) std::memcpy(surface.at(x, y), texel, 4);
        }
    }
}

// Draws the ground in perspective: rows further down are larger and move faster.
void Scene::drawGround(const Surface& surface) const {
    constexpr float kSpeed = 11;       // of the bottom row
    constexpr float kDistance = 2.2F;  // factor by which the horizon is smaller and slower
    for (uint32_t y = 0; y < mGround.size.height; ++y) {
        const float near = static_cast<float>(y) / static_cast<float>(mGround.size.height);
        copyRowScaled(surface.at(0, mHorizon + y), surface.size.width,
                      mGround.pixels.data() + y * mGround.stride(), mTileWidth, moved(kSpeed),
                      std::lerp(kDistance, 1.0F, near));
    }
}

// Draws a rotated sprite: finds the texel for each pixel near the sprite. The position is given as
// a fraction of the scene's size, the radius as a fraction of its height, the angle in radians.
void Scene::drawSprite(const Surface& surface, const Image& sprite, float x, float y, float radius,
                       float angle) const {
    const auto width = static_cast<float>(surface.size.width);
    const auto height = static_cast<float>(surface.size.height);
    const float reach = radius * height * 1.42F;  // distance of a corner from the centre
    const auto inside = [](float at, float side) {
        return static_cast<uint32_t>(std::clamp(at, 0.0F, side));
    };
    const float texels = static_cast<float>(sprite.size.width) / (2 * radius * height);
    const float cosine = std::cos(angle) * texels;
    const float sine = std::sin(angle) * texels;
    const float middle = static_cast<float>(sprite.size.width) / 2;
    for (uint32_t py = inside(y * height - reach, height); py < inside(y * height + reach, height);
         ++py) {
        const float dy = static_cast<float>(py) - y * height;
        for (uint32_t px = inside(x * width - reach, width); px < inside(x * width + reach, width);
             ++px) {
            const float dx = static_cast<float>(px) - x * width;
            const float u = middle + dx * cosine + dy * sine;
            const float v = middle - dx * sine + dy * cosine;
            const float edge = 2 * middle - 2;  // the last texel with a neighbour to interpolate
            if (u < 0 || v < 0 || u > edge || v > edge) continue;
            blendTexel(surface.at(px, py), sprite, u, v);
        }
    }
}

// Draws two crates that sway and rotate, and a ball that rolls along the road. Their time advances
// by 120 frames at each cut, so that a cut also moves them.
void Scene::drawObjects(const Surface& surface) const {
    const uint64_t lastCut = mFrame / kCutAfter * kCutAfter;
    const auto time = static_cast<float>(mFrame + lastCut);
    const auto sway = [&](float centre, float reach, float speed, float phase) {
        return centre + reach * std::sin(speed * time + phase);
    };
    drawSprite(surface, mCrate, sway(0.62F, 0.22F, 0.037F, 1.9F), sway(0.56F, 0.12F, 0.047F, 0.9F),
               0.11F, -0.035F * time);
    drawSprite(surface, mCrate, sway(0.70F, 0.16F, 0.049F, 4.1F), sway(0.30F, 0.12F, 0.044F, 2.3F),
               0.07F, 0.06F * time);
    // The ball rolls along the road: its angle corresponds to the distance.
    constexpr float kRadius = 0.085F;
    const float road = sway(0.45F, 0.30F, 0.030F, 3.0F);
    const float aspect =
        static_cast<float>(surface.size.width) / static_cast<float>(surface.size.height);
    drawSprite(surface, mBall, road, 0.83F, kRadius, road * aspect / kRadius);
}

// Draws the head-up display: a frame counter on a plate, and a gauge whose lines are one pixel
// thick at every size.
void Scene::drawDisplay(const Surface& surface) const {
    const int32_t dot = std::max(1, scaled(3));
    const int32_t margin = scaled(22);
    const std::string counter = format("FRAME %05llu", big(mFrame));
    const auto letters = static_cast<int32_t>(counter.size());
    fill(surface,
         {margin, margin, (letters * kLetterAdvance - 1) * dot + 2 * margin,
          kLetterHeight * dot + 2 * margin},
         {12, 14, 24, 150});
    drawText(surface, 2 * margin, 2 * margin, dot, counter, {255, 255, 255});

    constexpr Colour kLight{236, 240, 255};
    const int32_t length = scaled(420);
    const int32_t left = (static_cast<int32_t>(surface.size.width) - length) / 2;
    const int32_t y = static_cast<int32_t>(surface.size.height) - scaled(70);
    fill(surface, {left, y, length, 1}, kLight);
    for (int32_t i = 0; i <= 20; ++i) {
        const int32_t tick = scaled(i % 5 == 0 ? 22 : 10);
        fill(surface, {left + length * i / 20, y - tick, 1, tick}, kLight);
    }
}

std::optional<int64_t> Scene::next(uint8_t* rgba, size_t stride) {
    if (mFrame == mInfo.length) return std::nullopt;
    const Surface surface{rgba, stride, mInfo.size};
    drawLayer(surface, mSky, 1);
    drawLayer(surface, mFarRidge, 2);
    drawLayer(surface, mNearRidge, 4);
    drawGround(surface);
    drawObjects(surface);
    drawDisplay(surface);
    return timestampOf(mInfo.rate, mFrame++);
}

}  // namespace qozplay
