// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <ui/Fence.h>
#include <ui/GraphicBuffer.h>
#include <utils/StrongPointer.h>

#include <cstdint>

namespace android {

// Converts game frames to NV12, makes half-size copies, and estimates the motion between frames.
// Only one thread may use it at a time. Operations that return bool return false on failure.
class Rgb2Yuv {
  public:
    Rgb2Yuv();
    virtual ~Rgb2Yuv();

    Rgb2Yuv(const Rgb2Yuv&) = delete;
    Rgb2Yuv& operator=(const Rgb2Yuv&) = delete;

    // Configures conversion and motion estimation for sources like `source` and for an output of
    // `width` x `height` pixels.
    bool Configure(sp<GraphicBuffer>& source, uint32_t width, uint32_t height);

    // Waits for the fence and converts `source` to `target`. Also writes the half-size copy unless
    // `downscaled` is null. `motion` is true if the frame takes part in motion estimation.
    bool RGBToNV12(sp<GraphicBuffer>& source, sp<GraphicBuffer>& target,
                   sp<GraphicBuffer>& downscaled, bool motion, sp<Fence> fence);

    // Fills the vector buffers: forward is from previous to current, backward from current to
    // previous.
    bool MvBufferGeneration(sp<GraphicBuffer>& previous, sp<GraphicBuffer>& current,
                            sp<GraphicBuffer>& forward, sp<GraphicBuffer>& backward);

    // Returns the size of one vector buffer for the current configuration, in pixels.
    bool GetMVbufferSize(uint32_t& width, uint32_t& height);

    // Writes the buffer to a file for debugging. `name` and `frame` select the file; `label` is
    // logged.
    void DumpBuffer(sp<GraphicBuffer>& buffer, const char* name, uint32_t frame, const char* label);

    // Releases working memory. The configuration stays in effect.
    void clearOpenGLResources();

  private:
    class Engine;
    Engine* mEngine;
};

}  // namespace android
