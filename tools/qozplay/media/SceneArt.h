// SPDX-License-Identifier: Apache-2.0
// The scene's textures, painted once before the first frame. Every run of the player paints the
// same pixels.
#pragma once

#include "qozplay/media/Canvas.h"

namespace qozplay {

// Layers that scroll: the right edge meets the left one. A ridge is transparent above its line,
// which swings by `relief` around `base`, both parts of the height from the top.
Image paintSky(Size size);
Image paintRidge(Size size, float base, float relief, Colour rock, uint32_t seed);
Image paintGround(Size size);

// Square sprites; the alpha of a texel says how much of it covers the background.
Image paintCrate(uint32_t side);
Image paintBall(uint32_t side);

}  // namespace qozplay
