// What the tests of the converter share: buffers, and a converter whose errors are counted.
#pragma once

#include <Rgb2Yuv.h>
#include <android/log.h>
#include <gtest/gtest.h>
#include <host/control.h>
#include <host/converter/MotionField.h>
#include <host/platform/BufferLayout.h>
#include <ui/GraphicBufferMapper.h>

#include <cstdint>
#include <vector>

namespace qoz::test {

using namespace host;

using android::Fence;
using android::GraphicBuffer;
using android::Rgb2Yuv;
using android::sp;

inline sp<GraphicBuffer> makeBuffer(uint32_t width, uint32_t height, int32_t format) {
    return new GraphicBuffer(width, height, format, GraphicBuffer::USAGE_SW_WRITE_OFTEN);
}

inline sp<GraphicBuffer> makeField(uint32_t sourceWidth, uint32_t sourceHeight) {
    return makeBuffer(fieldWidth(sourceWidth), fieldHeight(sourceHeight), kRgba8888);
}

inline uint8_t* pixelsOf(const sp<GraphicBuffer>& buffer) {
    void* pixels = nullptr;
    EXPECT_EQ(buffer->lock(GraphicBuffer::USAGE_SW_READ_OFTEN, &pixels), android::OK);
    buffer->unlock();  // the desk machine keeps buffers mapped for as long as they live
    return static_cast<uint8_t*>(pixels);
}

inline std::vector<uint8_t> bytesOf(const sp<GraphicBuffer>& buffer) {
    uint64_t size = 0;
    android::GraphicBufferMapper::getInstance().getAllocationSize(buffer->handle, &size);
    return {pixelsOf(buffer), pixelsOf(buffer) + size};
}

class ConverterTest : public testing::Test {
  protected:
    ConverterTest() {
        setLogSink([this](const LogLine& line) {
            if (line.priority == ANDROID_LOG_ERROR && line.tag == "Rgb2Yuv") ++errors;
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

    Rgb2Yuv converter;
    int errors = 0;  // logged by the converter
};

}  // namespace qoz::test
