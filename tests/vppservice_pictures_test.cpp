// SPDX-License-Identifier: Apache-2.0
// Tests of the pictures that the simulated service produces: motion in both directions, scene cuts,
// and sharper upscaling.
#include <cmath>
#include <numeric>

#include "support/VppSessionClient.h"

namespace qoz::test {
namespace {

using Sides = std::vector<std::pair<const char*, sp<GraphicBuffer>>>;

class VppPicturesTest : public VppServiceTest {
  protected:
    // Returns output frame `index` of the interval between two source frames.
    sp<GraphicBuffer> between(const sp<GraphicBuffer>& older, const sp<GraphicBuffer>& newer,
                              Size out, int factor, int index, const Sides& sides) {
        openAt(factor, {newer->width, newer->height}, out);
        std::vector<sp<GraphicBuffer>> outputs;
        for (int i = 0; i < factor + 2; ++i)
            EXPECT_EQ(queueOutput(i, outputs.emplace_back(frame(out))), 0);
        VppBuffer last = record(newer, 1, 2000);
        for (const auto& [name, side] : sides)
            attach(last, name, side);
        source(0, 1000, older);
        EXPECT_EQ(queue(VppPort::INPUT, last), 0);
        EXPECT_TRUE(mRecorder->await("output", outputs.size()));
        return outputs[static_cast<size_t>(index)];
    }
    static sp<GraphicBuffer> fieldOf(Size size, int dx, int dy, uint8_t error) {
        auto field = makeField(size.width, size.height);
        std::fill_n(vectorsOf(field), field->width / 2 * field->height,
                    MotionVector{static_cast<int16_t>(dx * kMotionUnit),
                                 static_cast<int16_t>(dy * kMotionUnit), error, 20, 0, 0});
        return field;
    }
};

// The whole picture pans. Areas that enter at the edges must be filled, and so must pictures whose
// size is no multiple of a block or node. Only one of the two fields has the motion, in turn.
TEST_F(VppPicturesTest, FollowsAPanUpToTheEdges) {
    const struct {
        Size size;
        int dx, dy;
    } cases[] = {{{131, 99}, 8, -8}, {{128, 96}, -16, 8}, {{17, 41}, 0, 8}, {{16, 40}, 0, 12}};
    for (const auto& c : cases) {
        const auto after = [&c](int quarters) {
            const auto at = [=](int x, int y) {
                return textured(x - c.dx * quarters / 4, y - c.dy * quarters / 4);
            };
            return frame(c.size, at, [at](int x, int y) { return at(x, y) / 2; });
        };
        const auto lost = fieldOf(c.size, 0, 0, 255);
        const Sides ways[] = {{{kForward, fieldOf(c.size, c.dx, c.dy, 0)}, {kBackward, lost}},
                              {{kForward, lost}, {kBackward, fieldOf(c.size, -c.dx, -c.dy, 0)}}};
        for (int i = 0; i < 6; ++i) {
            const int quarter = 1 + i / 2;
            auto got = bytesOf(between(after(0), after(4), c.size, 3, quarter, ways[i % 2]));
            got.resize(nv12Layout(c.size.width, c.size.height).size);
            const auto alike = std::transform_reduce(
                got.begin(), got.end(), bytesOf(after(quarter)).begin(), 0, std::plus(),
                [](int a, int b) { return int{std::abs(a - b) <= 6}; });
            EXPECT_GT(alike, std::ssize(got) * 9 / 10) << c.size.width << " wide, round " << i;
        }
    }
}

// Returns the mean difference between the luma of an output frame and a picture, without a margin.
double meanDifference(const sp<GraphicBuffer>& output, Size size, int margin,
                      const Picture& expected) {
    int sum = 0, count = 0;
    for (int y = margin; y < size.height - margin; ++y) {
        for (int x = margin; x < size.width - margin; ++x, ++count)
            sum += std::abs(yuvAt(output, x, y)[0] - expected(x, y));
    }
    return sum / double(count);
}

TEST_F(VppPicturesTest, ReadsBothSourcesBetweenTheirPixels) {
    constexpr Size kSize{128, 96};
    const auto moved = [](double by) {
        return [by](int x, int y) {
            return static_cast<int>(120 + 50 * std::sin((x - by) * 0.35) + 30 * std::sin(y * 0.3));
        };
    };
    const Sides sides{{kForward, fieldOf(kSize, 3, 0, 0)}, {kBackward, fieldOf(kSize, -3, 0, 0)}};
    const auto got = between(frame(kSize, moved(0)), frame(kSize, moved(3)), kSize, 1, 1, sides);
    // The difference would be 5 if the picture were half a pixel off.
    EXPECT_LT(meanDifference(got, kSize, 12, moved(1.5)), 1.5);
}

// The ground moves behind a still line, which is too thin for a block of vectors.
TEST_F(VppPicturesTest, KeepsALineOfOnePixelWholeOverAMovingGround) {
    constexpr Size kSize{128, 96};
    constexpr int kLine = 61, kPan = 8;
    const auto moved = [](int by) {
        return [by](int x, int y) { return x == kLine ? 235 : textured(x - by, y) / 2 + 40; };
    };
    const Sides sides{{kForward, fieldOf(kSize, kPan, 0, 0)},
                      {kBackward, fieldOf(kSize, -kPan, 0, 0)}};
    const auto got = between(frame(kSize, moved(0)), frame(kSize, moved(kPan)), kSize, 1, 1, sides);
    for (int y = 8; y < kSize.height - 8; ++y) {
        EXPECT_GT(yuvAt(got, kLine, y)[0], 225) << "torn at " << y;
        for (const int ghost : {kLine - kPan / 2, kLine + kPan / 2})
            EXPECT_LT(yuvAt(got, ghost, y)[0], 190) << "a second line at " << ghost << "," << y;
    }
}

TEST_F(VppPicturesTest, AFadeDarkensAndMovesNothing) {
    constexpr Size kSize{128, 96};
    const auto lit = [](int percent) {
        return [percent](int x, int y) { return textured(x, y) * percent / 100; };
    };
    auto forward = fieldOf(kSize, 0, 0, 0), backward = fieldOf(kSize, 0, 0, 0);
    for (int i = 0; i < forward->width / 2 * forward->height; ++i) {
        vectorsOf(forward)[i].gain = -51;
        vectorsOf(backward)[i].gain = 64;
    }
    const Sides sides{{kForward, forward}, {kBackward, backward}};
    const auto got = between(frame(kSize, lit(100)), frame(kSize, lit(80)), kSize, 1, 1, sides);
    EXPECT_LT(meanDifference(got, kSize, 0, lit(90)), 1);
}

TEST_F(VppPicturesTest, RepeatsTheNearerSourceAtASceneCut) {
    const auto older = frame(kSmall, flat(20)), newer = frame(kSmall, flat(220));
    const auto luma = [&](Size fieldsFor, int index) {
        const auto lost = fieldOf(fieldsFor, 0, 0, 200);
        const Sides sides{{kForward, lost}, {kBackward, lost}};
        return int{yuvAt(between(older, newer, kSmall, 3, index, sides), 30, 20)[0]};
    };
    EXPECT_EQ(luma(kSmall, 1), 20);
    EXPECT_EQ(luma(kSmall, 3), 220);
    // Fields of another size are not used: the sources are blended.
    EXPECT_NEAR(luma({1280, 720}, 1), 70, 1);
}

TEST_F(VppPicturesTest, HalfSizeFrameRaisesDetailOfAllFramesOfAnUpscale) {
    const auto step = [] { return frame(kSmall, [](int x, int) { return x < 32 ? 60 : 180; }); };
    const auto half =
        frame({48, 36}, [](int x, int) { return std::clamp(60 + (x - 18) * 10, 60, 180); });
    EXPECT_NEAR(yuvAt(between(step(), step(), {96, 72}, 1, 2, {}), 44, 30)[0], 60, 2);
    const auto raised = between(step(), step(), {96, 72}, 1, 2, {{kHalf, half}});
    EXPECT_NEAR(yuvAt(raised, 44, 30)[0], 60 - 16, 3) << "what is dark beside the edge is darker";
    EXPECT_NEAR(yuvAt(raised, 52, 30)[0], 180 + 16, 3);
    EXPECT_NEAR(yuvAt(raised, 10, 30)[0], 60, 1) << "away from edges nothing changes";
}

}  // namespace
}  // namespace qoz::test
