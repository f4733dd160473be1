// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <ui/Fence.h>
#include <ui/GraphicBuffer.h>
#include <utils/StrongPointer.h>

#include <cstdint>

namespace android {

// Converts game frames to NV12, makes their half-size copies, and estimates motion between them.
// One thread at a time.
class Rgb2Yuv {
  public:
    Rgb2Yuv();
    virtual ~Rgb2Yuv();

    Rgb2Yuv(const Rgb2Yuv&) = delete;
    Rgb2Yuv& operator=(const Rgb2Yuv&) = delete;

    // Sets conversion and motion estimation up for sources like this one and outputs of this size.
    bool Configure(sp<GraphicBuffer>& source, uint32_t width, uint32_t height);

    // Waits for the fence, then writes `target` and, when given, `downscaled`. `motion`: the frame
    // takes part in motion estimation.
    bool RGBToNV12(sp<GraphicBuffer>& source, sp<GraphicBuffer>& target,
                   sp<GraphicBuffer>& downscaled, bool motion, sp<Fence> fence);

    // Fills the forward (previous to current) and backward vector buffers.
    bool MvBufferGeneration(sp<GraphicBuffer>& previous, sp<GraphicBuffer>& current,
                            sp<GraphicBuffer>& forward, sp<GraphicBuffer>& backward);

    // Size in pixels of one vector buffer, for the configuration in force.
    bool GetMVbufferSize(uint32_t& width, uint32_t& height);

    void DumpBuffer(sp<GraphicBuffer>& buffer, const char* name, uint32_t frame, const char* label);

    void clearOpenGLResources();

  private:
    class Engine;
    Engine* mEngine;
};

}  // namespace android
