// SPDX-License-Identifier: Apache-2.0
// Tests of whole streams through component, converter and service, including the output pixels.
#include <client/LiveClient.h>

#include <cstring>
#include <new>

#include "support/Fixture.h"

namespace qoz::test {
namespace {

constexpr uint32_t kW = 320;
constexpr uint32_t kH = 192;
constexpr uint32_t kBox = 48;
constexpr int64_t kFrameNs = 33333000;

class EndToEnd : public ResourceTest {
  protected:
    // One output frame: its luma, in rows without padding.
    struct OutFrame {
        uint64_t timestamp;
        uint32_t width;
        std::vector<uint8_t> luma;
    };

    // Paints a bright box on textured ground, with its left edge at `x`.
    static void paintBox(uint8_t* rgba, uint32_t x) {
        for (uint32_t row = 0; row < kH; ++row) {
            for (uint32_t col = 0; col < kW; ++col) {
                const bool inside = col >= x && col < x + kBox && row >= 64 && row < 64 + kBox;
                const auto shade = static_cast<uint8_t>(inside ? 215 + (col - x) * 5 % 17 + row % 9
                                                               : 40 + col * 7 % 11 + row * 3 % 13);
                uint8_t* pixel = rgba + (size_t{row} * kW + col) * 4;
                memset(pixel, shade, 3);
                pixel[3] = 255;
            }
        }
    }

    // The mean position of the bright pixels, and their number in units of the box's area.
    struct Found {
        double centre;
        double area;
    };
    static Found findBox(const OutFrame& frame) {
        double sum = 0;
        double count = 0;
        for (size_t i = 0; i < frame.luma.size(); ++i) {
            if (frame.luma[i] < 150) continue;
            sum += static_cast<double>(i % frame.width);
            ++count;
        }
        const double scale = static_cast<double>(frame.width) / kW;
        return {sum / count / scale, count / (scale * scale * kBox * kBox)};
    }

    // Plays `count` frames of a box that moves by 8 pixels per frame and returns the output.
    std::vector<OutFrame> play(int count, ConfigParams params) {
        std::vector<OutFrame> frames;
        client::LiveClient client;
        client.onFrame = [&frames](const auto& out, const auto& returned) {
            const client::LockedPixels pixels(out, GraphicBuffer::USAGE_SW_READ_OFTEN);
            auto& luma =
                frames.emplace_back(OutFrame{returned.timestamp, out->getWidth(), {}}).luma;
            for (uint32_t y = 0; y < out->getHeight(); ++y) {
                const auto* row = pixels.data() + y * pixels.stride();
                luma.insert(luma.end(), row, row + out->getWidth());
            }
        };
        const int descriptors = host::openDescriptors();
        EXPECT_TRUE(client.start(kW, kH, params));
        for (int n = 0; n < count; ++n) {
            EXPECT_TRUE(client.send(kW, kH, n * kFrameNs, [n](uint8_t* rgba) {
                paintBox(rgba, 40 + 8 * static_cast<uint32_t>(n));
            }));
        }
        EXPECT_TRUE(client.waitForTimestamp(static_cast<uint64_t>((count - 1) * kFrameNs / 1000)));
        client.stop();
        EXPECT_EQ(client.account(), "");
        const auto buffers = host::counters().graphicBuffersLive;   // the rings, and a few of the
        EXPECT_EQ(host::openDescriptors() - descriptors, buffers);  // component's, one each
        return frames;
    }

    host::VppService service;
};

TEST_F(EndToEnd, TheBoxIsInTheMiddleOfTheInBetweenFrame) {
    for (const ConfigParams params : {ConfigParams{1, 0, 1, 0}, ConfigParams{1, 0, 1, 2}}) {
        const auto frames = play(10, params);
        ASSERT_EQ(frames.size(), 19);
        const uint32_t scale = params.upscaleIndex == 2 ? 2 : 1;
        EXPECT_EQ(frames[0].width, kW * scale);
        for (size_t i = 1; i < frames.size(); ++i) {
            EXPECT_EQ(frames[i].timestamp - frames[i - 1].timestamp, i % 2 == 1 ? 16666 : 16667);
            const Found box = findBox(frames[i]);
            EXPECT_NEAR(box.centre, 40 + kBox / 2.0 + 4.0 * static_cast<double>(i), 1.5) << i;
            // Interpolation along the vectors shows one box; a blend would show two faint ones.
            EXPECT_NEAR(box.area, 1.0, 0.12) << i;
        }
    }
}

TEST_F(EndToEnd, EachFactorMakesItsFrames) {
    for (const uint32_t factor : {0U, 1U, 2U, 3U}) {
        const auto frames = play(6, {1, 0, factor, 1});
        ASSERT_EQ(frames.size(), 1 + 5 * (factor + 1)) << factor;
        EXPECT_EQ(frames[0].width, kW * 3 / 2);
        for (size_t i = 1; i < frames.size(); ++i) {
            EXPECT_NEAR(static_cast<double>(frames[i].timestamp - frames[i - 1].timestamp),
                        33333.0 / (factor + 1), 1.0);
        }
    }
    EXPECT_EQ(play(4, {2, 0, 0, 0}).back().width, 2 * kW) << "upscaling alone";
}

// The first of two frames of one timestamp is complete when the third frame is sent, but the second
// one still waits for an output buffer, with the side buffers of the first. Each source is queued
// before the outputs that it fills.
TEST_F(EndToEnd, SideBuffersServeTheLastFrameOfTheirTimestamp) {
    Recorder client;
    const auto component = std::make_shared<VppComponent>();
    const auto send = [&](int32_t slot, int64_t frame) {
        std::vector<QOZBufferInfo> packet{
            {slot, buffer(kW, kH, kRgba), nullptr, frame * kFrameNs, {}}};
        EXPECT_EQ(component->process(&packet, nullptr), 0);
    };
    size_t filled = 0;
    const auto fill = [&] {
        QOZBufferInfo output{static_cast<int32_t>(filled), buffer(kW, kH, kNv12), nullptr, 0, {}};
        EXPECT_EQ(component->process(nullptr, &output), 0);
        ++filled;
        return eventually([&] { return client.done(0).size() == filled; });
    };
    ASSERT_TRUE(component->enable("test", &client, false));
    component->config(kW, kH, kRgba, {1, 0, 1, 0}, true);
    send(40, 0);
    ASSERT_TRUE(fill());
    send(41, 1);
    send(42, 1);
    ASSERT_TRUE(fill() && fill());
    EXPECT_EQ(client.done(0).back().timestamp, uint64_t{kFrameNs / 1000}) << "of the first frame";
    send(43, 2);
    EXPECT_EQ(takeQueuedTwice(), 0U);
    component->flushsync();
    component->disable();
}

// A client that fails at a frame must still learn of the frames that were returned together with
// it, or it would count them as lost.
TEST_F(EndToEnd, AFrameThatCannotBeUsedHidesNoOther) {
    client::LiveClient client;
    int frames = 0;
    client.onFrame = [&frames](const auto&, const auto&) {
        if (++frames == 1) throw client::SessionFailed("the disk is full");
    };
    ASSERT_TRUE(client.start(kW, kH, {1, 0, 0, 0}));
    client.queueOutputs(3);
    for (int n = 0; n < 3; ++n)
        EXPECT_TRUE(client.submit(client.takeSource({kW, kH}), n * kFrameNs, {}));
    ASSERT_TRUE(eventually([&] { return client.outstanding(client::kOutputPort) == 0; }));
    EXPECT_THROW(client.look(), client::SessionFailed);
    EXPECT_EQ(frames, 3);
    client.stop();
    EXPECT_EQ(client.account(), "");
}

// More frames fail than there are sources, so each source must have become free again.
TEST_F(EndToEnd, AFrameThatCannotBePaintedKeepsNoSource) {
    client::LiveClient client;
    client.patience = std::chrono::seconds(1);
    ASSERT_TRUE(client.start(kW, kH, {1, 0, 0, 0}));
    for (size_t n = 0; n <= client::SourceRing::kSlots; ++n) {
        EXPECT_TRUE(client.send(kW, kH, 0, [](uint8_t*) {
            throw client::SessionFailed("the picture cannot be read");
        }));
        EXPECT_THROW(client.send(kW, kH, 0, [](uint8_t*) { throw std::bad_alloc(); }),
                     std::bad_alloc);
    }
    EXPECT_TRUE(client.send(kW, kH, kFrameNs));
    EXPECT_TRUE(client.waitForTimestamp(kFrameNs / 1000));
    client.stop();
    EXPECT_EQ(client.account(), "");
}

}  // namespace
}  // namespace qoz::test
