// A converter whose errors are counted.
#pragma once

#include <Rgb2Yuv.h>
#include <android/log.h>
#include <host/control.h>

#include "support/Pixels.h"

namespace qoz::test {

using android::Fence;

class ConverterTest : public testing::Test {
  protected:
    ConverterTest() {
        setLogSink([this](const LogLine& line) {
            errors += line.priority == ANDROID_LOG_ERROR && line.tag == "Rgb2Yuv";
        });
    }
    ~ConverterTest() override {
        setLogSink({});
        clearFaults();
        clearProperties();
    }

    bool convert(sp<GraphicBuffer> source, sp<GraphicBuffer> target,
                 sp<GraphicBuffer> downscaled = {}, const sp<Fence>& fence = {}) {
        return converter.RGBToNV12(source, target, downscaled, true, fence);
    }
    bool estimate(sp<GraphicBuffer> previous, sp<GraphicBuffer> current, sp<GraphicBuffer> forward,
                  sp<GraphicBuffer> backward) {
        return converter.MvBufferGeneration(previous, current, forward, backward);
    }

    android::Rgb2Yuv converter;
    int errors = 0;  // logged by the converter
};

}  // namespace qoz::test
