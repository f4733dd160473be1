// SPDX-License-Identifier: Apache-2.0
// The textures of the built-in scene. They are computed once, before the first frame, and are the
// same in every run.
#pragma once

#include "qozplay/media/Canvas.h"

namespace qozplay {

// Scrolling layers, which repeat without a visible edge. A ridge is transparent above its skyline.
// The skyline varies by `relief` around `base`; both are fractions of the height, from the top.
Image paintSky(Size size);
Image paintRidge(Size size, float base, float relief, Colour rock, uint32_t seed);
Image paintGround(Size size);

// Square sprites. A texel's alpha is the fraction of the background that it covers.
Image paintCrate(uint32_t side);
Image paintBall(uint32_t side);

}  // namespace qozplay
