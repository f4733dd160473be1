// SPDX-License-Identifier: Apache-2.0
// A converter that does nothing, so that a bench measures only the component's own work.
#include <Rgb2Yuv.h>
#include <host/converter/MotionField.h>

namespace android {

class Rgb2Yuv::Engine {
  public:
    uint32_t width = 0;
    uint32_t height = 0;
};

Rgb2Yuv::Rgb2Yuv() : mEngine(new Engine) {}

Rgb2Yuv::~Rgb2Yuv() {
    delete mEngine;
}

bool Rgb2Yuv::Configure(sp<GraphicBuffer>& source, uint32_t, uint32_t) {
    mEngine->width = source->getWidth();
    mEngine->height = source->getHeight();
    return true;
}

bool Rgb2Yuv::RGBToNV12(sp<GraphicBuffer>&, sp<GraphicBuffer>&, sp<GraphicBuffer>&, bool,
                        // NOLINTNEXTLINE(performance-unnecessary-value-param): as on the device
                        sp<Fence>) {
    return true;
}

bool Rgb2Yuv::MvBufferGeneration(sp<GraphicBuffer>&, sp<GraphicBuffer>&, sp<GraphicBuffer>&,
                                 sp<GraphicBuffer>&) {
    return true;
}

bool Rgb2Yuv::GetMVbufferSize(uint32_t& width, uint32_t& height) {
    width = qoz::host::fieldPixels(mEngine->width);
    height = qoz::host::fieldHeight(mEngine->height);
    return true;
}

void Rgb2Yuv::DumpBuffer(sp<GraphicBuffer>&, const char*, uint32_t, const char*) {}

void Rgb2Yuv::clearOpenGLResources() {}

}  // namespace android
