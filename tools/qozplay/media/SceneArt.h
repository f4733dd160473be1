// SPDX-License-Identifier: Apache-2.0
// The scene's textures, painted once before the first frame.
#pragma once

#include <cstdint>
#include <vector>

#include "qozplay/media/Canvas.h"

namespace qozplay {

// Smooth noise from 0 to 1 that repeats after `period` cells in x. Depends on its arguments alone,
// so every run of the player shows the same pixels.
float noise(float x, float y, uint32_t period, uint32_t seed);

// A layer that scrolls: its width is a power of two and its right edge meets its left one.
struct Layer {
    Image image;
    std::vector<uint32_t> top;  // first opaque row of each column; empty: opaque all over
};

Layer paintSky(Size size);
Layer paintRidge(Size size, float base, float relief, Colour rock, uint32_t seed);
Layer paintGround(Size size);

// Square sprites; the alpha of a texel says how much of it covers the background.
Image paintCrate(uint32_t side);
Image paintGear(uint32_t side);
Image paintBall(uint32_t side);

}  // namespace qozplay
