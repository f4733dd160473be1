// SPDX-License-Identifier: Apache-2.0
// A fixture for tests of the converter, which counts the errors that the converter logs.
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
                 sp<GraphicBuffer> downscaled = {}, const sp<Fence>& fence = {},
                 bool motion = true) {
        if (configures)
            configure(source, downscaled != nullptr ? downscaled : target,
                      downscaled != nullptr ? 2 : 1);
        return converter.RGBToNV12(source, target, downscaled, motion, fence);
    }
    bool estimate(sp<GraphicBuffer> previous, sp<GraphicBuffer> current, sp<GraphicBuffer> forward,
                  sp<GraphicBuffer> backward) {
        if (configures) configure(current, current, 1);
        return converter.MvBufferGeneration(previous, current, forward, backward);
    }

    // If set, convert() and estimate() first configure the converter for their arguments.
    bool configures = true;
    android::Rgb2Yuv converter;
    int errors = 0;  // logged by the converter

  private:
    void configure(sp<GraphicBuffer> source, const sp<GraphicBuffer>& size, uint32_t times) {
        ASSERT_TRUE(
            converter.Configure(source, size->getWidth() * times, size->getHeight() * times));
    }
};

}  // namespace qoz::test
