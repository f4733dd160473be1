// The converter's motion fields: that they say where the blocks of a picture went.
#include <support/ConverterFixture.h>

#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <functional>
#include <utility>
#include <vector>

namespace qoz::test {
namespace {

using ConverterMotionTest = ConverterTest;
using Luma = std::function<int(int x, int y)>;

int noise(int x, int y) {
    uint32_t h = static_cast<uint32_t>(x) * 374761393U + static_cast<uint32_t>(y) * 668265263U;
    h = (h ^ (h >> 13)) * 1274126177U;
    return static_cast<int>((h ^ (h >> 16)) & 0xFF);
}

// Detail of several sizes, as pictures have it; never the same twice.
int textured(int x, int y) {
    constexpr int kOffset = 4096;  // keeps the divisions from rounding towards zero
    x += kOffset;
    y += kOffset;
    const auto smooth = [x, y](int size) {
        const int left = x / size, top = y / size, u = x % size, v = y % size;
        const int above = noise(left, top) * (size - u) + noise(left + 1, top) * u;
        const int below = noise(left, top + 1) * (size - u) + noise(left + 1, top + 1) * u;
        return (above * (size - v) + below * v) / (size * size);
    };
    return smooth(48) / 2 + smooth(12) / 4 + smooth(4) / 4;
}

// A grey frame: in NV12 the luma is what the estimator sees, to the bit.
sp<GraphicBuffer> frameOf(uint32_t width, uint32_t height, int32_t format, const Luma& luma) {
    const auto frame = makeBuffer(width, height, format);
    const bool nv12 = isNv12(format);
    const size_t stride = nv12 ? nv12Layout(width, height).stride : rgbaStride(width);
    for (uint32_t i = 0; i < width * height; ++i) {
        const auto value =
            static_cast<uint8_t>(luma(static_cast<int>(i % width), static_cast<int>(i / width)));
        uint8_t* row = pixelsOf(frame) + stride * (i / width);
        if (nv12) row[i % width] = value;
        if (!nv12) memset(row + i % width * 4, value, 4);
    }
    return frame;
}

const MotionVector& vectorAt(const sp<GraphicBuffer>& field, uint32_t column, uint32_t row) {
    return reinterpret_cast<const MotionVector*>(pixelsOf(field))[row * field->getWidth() + column];
}

// Calls `visit(vector, x, y)` for each block, (x, y) being its first pixel.
template <typename Visit>
void forEachBlock(const sp<GraphicBuffer>& field, uint32_t width, uint32_t height, Visit visit) {
    for (uint32_t i = 0; i < field->getWidth() * field->getHeight(); ++i) {
        const uint32_t column = i % field->getWidth(), row = i / field->getWidth();
        visit(vectorAt(field, column, row), static_cast<int>(std::min(column * 16, width - 16)),
              static_cast<int>(std::min(row * 16, height - 16)));
    }
}

struct Shift {
    uint32_t width, height;
    int32_t format;
    int dx, dy;
};

// Every block whose likeness is in the other frame points at it.
void expectShift(const sp<GraphicBuffer>& field, const Shift& c, int dx, int dy) {
    const auto inside = [](int from, uint32_t size) {
        return from >= 0 && from + 16 <= static_cast<int>(size);
    };
    int seen = 0, right = 0;
    forEachBlock(field, c.width, c.height, [&](const MotionVector& v, int x, int y) {
        if (!inside(x + dx, c.width) || !inside(y + dy, c.height)) return;
        ++seen;
        if (v.dx == dx && v.dy == dy && v.error == 0 && v.texture > 0) ++right;
    });
    EXPECT_GT(seen, 0);
    EXPECT_GE(right * 100, seen * 98)
        << "shift " << dx << "," << dy << ": " << right << " of " << seen;
}

TEST_F(ConverterMotionTest, FollowsAShiftedPictureBothWays) {
    const Shift kCases[] = {
        {320, 192, kNv12Vemo, 0, 0},    {320, 192, kNv12Vemo, 5, 3},
        {320, 192, kNv12Vemo, -7, 2},   {320, 192, kRgba8888, 16, -16},
        {320, 192, kNv12Vemo, -40, 24}, {640, 360, kNv12Vemo, 64, -64},
        {250, 150, kRgba8888, 1, -9},   {70, 50, kNv12Vemo, 11, 6},
    };
    for (const Shift& c : kCases) {
        const auto previous = frameOf(c.width, c.height, c.format, textured);
        const auto current = frameOf(c.width, c.height, c.format,
                                     [&](int x, int y) { return textured(x - c.dx, y - c.dy); });
        const auto forward = makeField(c.width, c.height);
        const auto backward = makeField(c.width, c.height);
        ASSERT_TRUE(estimate(previous, current, forward, backward));
        expectShift(forward, c, c.dx, c.dy);
        expectShift(backward, c, -c.dx, -c.dy);
    }
}

TEST_F(ConverterMotionTest, TellsMovingRegionsApartAndStatesErrorAndTexture) {
    constexpr uint32_t kWidth = 640, kHeight = 360;
    struct Scene {
        int objectX, objectY, panX;
        int operator()(int x, int y) const {
            const int u = x - objectX, v = y - objectY;
            const bool object = u >= 0 && v >= 0 && u < 128 && v < 96;
            return object ? textured(u + 2000, v) : textured(x - panX, y);
        }
    };
    const Scene before{208, 112, 0}, after{208 - 22, 112 + 9, 6};
    const auto forward = makeField(kWidth, kHeight), backward = makeField(kWidth, kHeight);
    ASSERT_TRUE(estimate(frameOf(kWidth, kHeight, kNv12Vemo, before),
                         frameOf(kWidth, kHeight, kNv12Vemo, after), forward, backward));
    int object = 0, background = 0;
    forEachBlock(forward, kWidth, kHeight, [&](const MotionVector& v, int x, int y) {
        const bool inObject = x >= 208 && x < 208 + 128 && y >= 112 && y < 112 + 96;
        if (inObject && v.dx == -22 && v.dy == 9) ++object;
        if (!inObject && v.dx == 6 && v.dy == 0) ++background;

        if (x + v.dx < 0 || x + v.dx + 16 > static_cast<int>(kWidth)) return;
        if (y + v.dy < 0 || y + v.dy + 16 > static_cast<int>(kHeight)) return;
        if (x + 17 > static_cast<int>(kWidth) || y + 17 > static_cast<int>(kHeight)) return;
        int difference = 0, gradient = 0;
        for (int i = 0; i < 256; ++i) {
            const int u = x + i % 16, w = y + i / 16;
            difference += std::abs(before(u, w) - after(u + v.dx, w + v.dy));
            gradient += std::abs(before(u, w) - before(u + 1, w));
            gradient += std::abs(before(u, w) - before(u, w + 1));
        }
        EXPECT_NEAR(v.error, difference / 256.0, 1) << x << "," << y;
        EXPECT_NEAR(v.texture, gradient / 256.0, 1) << x << "," << y;
    });
    EXPECT_GE(object, 46);                           // of 48
    EXPECT_GE(background, (40 * 23 - 48) * 9 / 10);  // the object covers some, some leave
}

TEST_F(ConverterMotionTest, FlatPicturesStandStill) {
    const struct { uint32_t width, height; } kCases[] = {{1, 1}, {7, 300}, {33, 17}, {320, 180}};
    for (const auto& c : kCases) {
        for (const int change : {0, 10}) {
            const auto flat = [&](int level) {
                return frameOf(c.width, c.height, kNv12Vemo, [level](int, int) { return level; });
            };
            const auto forward = makeField(c.width, c.height);
            const auto backward = makeField(c.width, c.height);
            ASSERT_TRUE(estimate(flat(100), flat(100 + change), forward, backward));
            for (const auto& field : {forward, backward}) {
                for (uint32_t i = 0; i < field->getWidth() * field->getHeight(); ++i) {
                    const MotionVector& v = vectorAt(field, i, 0);
                    EXPECT_TRUE(v.dx == 0 && v.dy == 0 && v.texture == 0 && v.error == change);
                }
            }
        }
    }
}

TEST_F(ConverterMotionTest, NoiseAloneMovesNothing) {
    const auto grainy = [](int seed) {
        return frameOf(320, 192, kNv12Vemo,
                       [seed](int x, int y) { return 100 + noise(x + seed, y) % 5; });
    };
    const auto forward = makeField(320, 192), backward = makeField(320, 192);
    ASSERT_TRUE(estimate(grainy(0), grainy(5000), forward, backward));
    int still = 0;
    forEachBlock(forward, 320, 192,
                 [&](const MotionVector& v, int, int) { still += v.dx == 0 && v.dy == 0; });
    EXPECT_GE(still, 240 * 95 / 100);
}

TEST_F(ConverterMotionTest, FindsASmallObjectThatNoLargerBlockFollows) {
    const auto scene = [](int objectX, int objectY) {
        return [=](int x, int y) {
            const int u = x - objectX, v = y - objectY;
            return u >= 0 && v >= 0 && u < 48 && v < 32 ? textured(u * 3 + 900, v * 3) / 2 + 100
                                                        : textured(x, y);
        };
    };
    const auto forward = makeField(640, 368), backward = makeField(640, 368);
    ASSERT_TRUE(estimate(frameOf(640, 368, kNv12Vemo, scene(304, 176)),
                         frameOf(640, 368, kNv12Vemo, scene(304 - 19, 176 + 14)), forward,
                         backward));
    int found = 0;
    for (uint32_t i = 0; i < 6; ++i) {
        const MotionVector& v = vectorAt(forward, 304 / 16 + i % 3, 176 / 16 + i / 3);
        found += v.dx == -19 && v.dy == 14;
    }
    EXPECT_GE(found, 5);
}

// An overlay of a column at the very edge and of a single block does not go along.
TEST_F(ConverterMotionTest, BlocksThatLeaveThePictureGoWithTheirNeighbours) {
    constexpr int kPan = -40;
    for (const bool overlay : {false, true}) {
        const auto panned = [overlay](int by) {
            return frameOf(640, 368, kNv12Vemo, [=](int x, int y) {
                const bool still = x < 16 || (x / 16 == 20 && y / 16 == 11);
                return overlay && still ? noise(x / 4, y / 4) : textured(x - by, y);
            });
        };
        const auto forward = makeField(640, 368), backward = makeField(640, 368);
        ASSERT_TRUE(estimate(panned(0), panned(kPan), forward, backward));
        const auto count = [](const sp<GraphicBuffer>& field, uint32_t column, int dx, int error) {
            int found = 0;
            for (uint32_t row = 0; row < field->getHeight(); ++row) {
                const MotionVector& v = vectorAt(field, column, row);
                found += v.dx == dx && v.dy == 0 && v.error == error;
            }
            return found;
        };
        EXPECT_GE(count(forward, 0, overlay ? 0 : kPan, overlay ? 0 : 255), 20);  // of 23
        EXPECT_GE(count(backward, 39, -kPan, 255), 18);
        EXPECT_EQ(vectorAt(forward, 20, 11).dx, overlay ? 0 : kPan);
    }
}

TEST_F(ConverterMotionTest, TheSamePairGivesTheSameFieldsWhateverCameBefore) {
    const auto shifted = [](int by) {
        return frameOf(320, 192, kRgba8888, [by](int x, int y) {
            return (textured(x - by, y) * 7 + noise(x + by, y)) / 8;
        });
    };
    const auto a = shifted(0), b = shifted(13);
    const auto forward = makeField(320, 192), backward = makeField(320, 192);
    ASSERT_TRUE(estimate(a, b, forward, backward));
    const auto first = std::pair(bytesOf(forward), bytesOf(backward));

    auto larger = makeBuffer(640, 360, kRgba8888);
    ASSERT_TRUE(estimate(larger, larger, makeField(640, 360), makeField(640, 360)));
    converter.clearOpenGLResources();
    ASSERT_TRUE(estimate(b, shifted(-30), forward, backward));
    EXPECT_NE(first.first, bytesOf(forward));
    ASSERT_TRUE(estimate(a, b, forward, backward));
    EXPECT_EQ(first, std::pair(bytesOf(forward), bytesOf(backward)));
}

}  // namespace
}  // namespace qoz::test
