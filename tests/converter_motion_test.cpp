// SPDX-License-Identifier: Apache-2.0
// Tests that the converter's motion fields show where the blocks of a picture have moved.
#include <support/ConverterFixture.h>

#include <algorithm>
#include <cmath>
#include <utility>

namespace qoz::test {
namespace {

class ConverterMotionTest : public ConverterTest {
  protected:
    // Returns the forward and the backward field of two pictures.
    std::pair<sp<GraphicBuffer>, sp<GraphicBuffer>> fieldsOf(int width, int height, int32_t format,
                                                             const Picture& before,
                                                             const Picture& after) {
        std::pair fields{makeField(width, height), makeField(width, height)};
        const auto previous = painted(width, height, format, before);
        const auto current = painted(width, height, format, after);
        EXPECT_TRUE(convert(current, makeBuffer(width, height, kNv12Vemo)));
        EXPECT_TRUE(estimate(previous, current, fields.first, fields.second));
        return fields;
    }
};

// Returns true if a vector is this many pixels long, to within a quarter of a pixel.
bool leads(const MotionVector& v, int dx, int dy) {
    return std::abs(v.dx - dx * kMotionUnit) <= 2 && std::abs(v.dy - dy * kMotionUnit) <= 2;
}

// Counts the vectors for which `is(vector, x, y)` is true; (x, y) is the first pixel of the block.
int count(const sp<GraphicBuffer>& field, int width, int height,
          const std::function<bool(const MotionVector& v, int x, int y)>& is) {
    int found = 0;
    for (int i = 0; i < field->width / 2 * field->height; ++i) {
        found += is(vectorsOf(field)[i], std::min(i % (field->width / 2) * 16, width - 16),
                    std::min(i / (field->width / 2) * 16, height - 16));
    }
    return found;
}

// Every block that also exists in the other frame has a vector to its position there.
TEST_F(ConverterMotionTest, FollowsAShiftedPictureBothWays) {
    const struct {
        int width, height, format, dx, dy;
    } cases[] = {{320, 192, kNv12Vemo, 0, 0},    {320, 192, kNv12Vemo, 5, 3},
                 {320, 192, kNv12Vemo, -7, 2},   {320, 192, kRgba8888, 16, -16},
                 {320, 192, kNv12Vemo, -40, 24}, {640, 360, kNv12Vemo, 64, -64},
                 {250, 150, kRgba8888, 1, -9},   {70, 50, kNv12Vemo, 11, 6}};
    for (const auto& c : cases) {
        const auto shifted = [&](int x, int y) { return textured(x - c.dx, y - c.dy); };
        const auto fields = fieldsOf(c.width, c.height, c.format, textured, shifted);
        for (const int sign : {1, -1}) {
            const int dx = sign * c.dx, dy = sign * c.dy;
            const auto& field = sign > 0 ? fields.first : fields.second;
            const auto stays = [&](const MotionVector&, int x, int y) {
                return std::clamp(x + dx, 0, c.width - 16) == x + dx &&
                       std::clamp(y + dy, 0, c.height - 16) == y + dy;
            };
            const int all = count(field, c.width, c.height, stays);
            const int right = count(field, c.width, c.height, [&](const auto& v, int x, int y) {
                return stays(v, x, y) && leads(v, dx, dy) && v.error == 0 && v.texture > 0;
            });
            EXPECT_GT(all, 0);
            EXPECT_GE(right * 100, all * 98) << "shift " << dx << "," << dy << " of " << all;
        }
        const auto again = fieldsOf(c.width, c.height, c.format, textured, shifted);
        EXPECT_EQ(bytesOf(again.first), bytesOf(fields.first)) << "depends on what came before";
        if (c.format == kRgba8888) converter.clearOpenGLResources();
    }
}

// A picture of a textured object in front of a textured ground, which can both move.
struct Scene {
    int left, top, width, height, detail;  // of the object
    int pan;                               // of the ground

    int operator()(int x, int y) const {
        const int u = x - left, v = y - top;
        const bool object = u >= 0 && v >= 0 && u < width && v < height;
        return object ? textured(u * detail + 900, v * detail) / 2 + 100 : textured(x - pan, y);
    }
};

// The second object is so small that a search with larger blocks does not find it.
TEST_F(ConverterMotionTest, TellsMovingRegionsApartAndStatesErrorAndTexture) {
    constexpr int kWidth = 640, kHeight = 368;
    const struct {
        Scene before;
        int dx, dy, pan;
    } cases[] = {{{208, 112, 128, 96, 1, 0}, -22, 9, 6}, {{304, 176, 48, 32, 3, 0}, -19, 14, 0}};
    for (const auto& c : cases) {
        const Scene before = c.before;
        Scene after = before;
        after.left += c.dx, after.top += c.dy, after.pan = c.pan;
        const auto field = fieldsOf(kWidth, kHeight, kNv12Vemo, before, after).first;
        int object = 0, ground = 0;
        count(field, kWidth, kHeight, [&](const MotionVector& v, int x, int y) {
            const int u = x - before.left, w = y - before.top;
            const bool on = u >= 0 && u < before.width && w >= 0 && w < before.height;
            object += on && leads(v, c.dx, c.dy);
            ground += !on && leads(v, c.pan, 0);
            if (v.dx % kMotionUnit != 0 || v.dy % kMotionUnit != 0) return false;
            if (v.error == 255 || x + 17 > kWidth || y + 17 > kHeight) return false;
            int difference = 0, gradient = 0;
            for (int i = 0; i < 256; ++i) {
                const int px = x + i % 16, py = y + i / 16, here = before(px, py);
                difference +=
                    std::abs(here - after(px + v.dx / kMotionUnit, py + v.dy / kMotionUnit));
                gradient +=
                    std::abs(here - before(px + 1, py)) + std::abs(here - before(px, py + 1));
            }
            EXPECT_NEAR(v.error, difference / 256.0, 1) << x << "," << y;
            EXPECT_NEAR(v.texture, gradient / 256.0, 1) << x << "," << y;
            return true;
        });
        const int blocks = before.width * before.height / 256;
        EXPECT_GE(object * 6, blocks * 5);
        // The object hides some blocks of the ground, and some leave the picture.
        EXPECT_GE(ground * 10, (40 * 23 - blocks) * 9);
    }
}

}  // namespace
}  // namespace qoz::test
