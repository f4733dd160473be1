// SPDX-License-Identifier: Apache-2.0
// The clip for those who have none: a side-scrolling game with what makes interpolation hard or
// easy to judge. Layers that pass each other at their own speeds, things that turn and cover one
// another, fine texture, a head-up display that stands still over all of it, on a plate and as thin
// lines straight over the moving ground, and every few seconds a cut.
#pragma once

#include "qozplay/media/Canvas.h"
#include "qozplay/media/Frames.h"

namespace qozplay {

class Scene final : public FrameSource {
  public:
    static constexpr uint32_t kMinSide = 32;  // pixels; a scene below shows nothing

    Scene(Size size, AVRational rate, uint64_t frames);

    std::optional<int64_t> next(uint8_t* rgba, size_t stride) override;

  private:
    // Pixels that something has moved by the current frame at `speed` pixels a frame; speeds are
    // those of a scene 720 rows high. A cut leads to another part of the scene.
    float moved(float speed) const;
    int32_t scaled(float pixels) const;  // likewise

    void drawLayer(const Surface& surface, const Image& layer, float speed) const;
    void drawGround(const Surface& surface) const;
    void drawSprite(const Surface& surface, const Image& sprite, float x, float y, float radius,
                    float angle) const;
    void drawObjects(const Surface& surface) const;
    void drawDisplay(const Surface& surface) const;

    const uint32_t mHorizon;    // first row of the ground
    const uint32_t mTileWidth;  // of every layer; a power of two
    const Image mSky;
    const Image mFarRidge;
    const Image mNearRidge;
    const Image mGround;
    const Image mCrate;
    const Image mBall;
    uint64_t mFrame = 0;
};

}  // namespace qozplay
