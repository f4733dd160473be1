// SPDX-License-Identifier: Apache-2.0
// The clip for those who have none: a side-scrolling game with what makes interpolation hard or
// easy to judge. Layers that pass each other at their own speeds, things that turn and cover one
// another, fine texture, a head-up display that stands still over all of it, on a plate and as thin
// lines straight over the moving ground, and every few seconds a cut.
#pragma once

#include "qozplay/media/FrameSource.h"
#include "qozplay/media/SceneArt.h"

namespace qozplay {

class Scene final : public FrameSource {
  public:
    static constexpr uint32_t kMinSide = 32;  // pixels; a scene below shows nothing

    Scene(Size size, Rate rate, uint64_t frames);

    Size size() const override { return mSize; }
    Rate rate() const override { return mRate; }
    std::optional<uint64_t> length() const override { return mFrames; }
    bool next(uint8_t* rgba, size_t stride) override;

  private:
    // Pixels that something has moved by the current frame at `speed` pixels a frame; speeds are
    // those of a scene 720 rows high. A cut leads to another part of the scene.
    float moved(float speed) const;
    int32_t scaled(float pixels) const;  // likewise

    void drawLayer(const Surface& surface, const Layer& layer, float speed) const;
    void drawGround(const Surface& surface) const;
    void drawObjects(const Surface& surface) const;
    void drawDisplay(const Surface& surface) const;
    void drawThinLines(const Surface& surface) const;

    const Size mSize;
    const Rate mRate;
    const uint64_t mFrames;
    const float mScale;         // against a scene 720 rows high
    const uint32_t mHorizon;    // first row of the ground
    const uint32_t mTileWidth;  // of every layer
    Layer mSky;
    Layer mFarRidge;
    Layer mNearRidge;
    Layer mGround;
    Image mCrate;
    Image mGear;
    Image mBall;
    uint64_t mFrame = 0;
};

}  // namespace qozplay
