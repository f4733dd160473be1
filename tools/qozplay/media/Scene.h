// SPDX-License-Identifier: Apache-2.0
// The built-in clip, which the player processes when no input is given.
#pragma once

#include "qozplay/media/Canvas.h"
#include "qozplay/media/Frames.h"

namespace qozplay {

// Draws a side-scrolling game whose contents are difficult to interpolate or show errors well:
// layers that move at different speeds, objects that rotate and cover one another, fine texture,
// thin lines and text that stand still over the moving ground, and a cut every 120 frames. The
// player owns it, and one session's thread uses it.
class Scene final : public FrameSource {
  public:
    static constexpr uint32_t kMinSide = 32;  // pixels; a smaller scene shows nothing useful

    Scene(Size size, AVRational rate, uint64_t frames);

    std::optional<int64_t> next(uint8_t* rgba, size_t stride) override;

  private:
    // The distance in pixels that an object with `speed` pixels per frame has covered by the
    // current frame. Each cut adds a jump to another part of the scene. Speeds are given for a
    // scene of 720 rows and scaled to this one, as scaled() does with lengths.
    float moved(float speed) const;
    int32_t scaled(float pixels) const;

    void drawLayer(const Surface& surface, const Image& layer, float speed) const;
    void drawGround(const Surface& surface) const;
    void drawSprite(const Surface& surface, const Image& sprite, float x, float y, float radius,
                    float angle) const;
    void drawObjects(const Surface& surface) const;
    void drawDisplay(const Surface& surface) const;

    const uint32_t mHorizon;    // first row of the ground
    const uint32_t mTileWidth;  // width of every layer in texels; a power of two
    const Image mSky;
    const Image mFarRidge;
    const Image mNearRidge;
    const Image mGround;
    const Image mCrate;
    const Image mBall;
    uint64_t mFrame = 0;
};

}  // namespace qozplay
