// SPDX-License-Identifier: Apache-2.0
// Tests of the converter: NV12 conversion, scaling, frame dumps, and refused arguments.
#include <support/ConverterFixture.h>

#include <algorithm>
#include <utility>
#include <vector>

namespace qoz::test {
namespace {

// YUV values in BT.601 with limited range, rounded to the nearest.
constexpr Colour kRed{255, 0, 0}, kRedYuv{81, 90, 240};
constexpr Colour kBlue{0, 0, 255}, kBlueYuv{41, 240, 110};
constexpr int kColourTolerance = 0;
// The scaler's filter uses weights of 7 bits for chroma, so that each pass may lose 1/128 of it,
// and the rounding.
constexpr int kScaledTolerance = 6;

// Fills the left half with one colour and the right half with another.
void fill(const sp<GraphicBuffer>& rgba, Colour left, Colour right) {
    for (int i = 0; i < rgba->width * rgba->height; ++i) {
        uint8_t* pixel = pixelsOf(rgba) + i * 4;
        memcpy(pixel, i % rgba->width < rgba->width / 2 ? left.data() : right.data(), 3);
        pixel[3] = 0;  // alpha is ignored
    }
}

void expectHalves(const sp<GraphicBuffer>& nv12, Colour left, Colour right, int seam,
                  int tolerance) {
    for (int i = 0; i < nv12->width * nv12->height; ++i) {
        const int x = i % nv12->width, y = i / nv12->width, fromSeam = 2 * x - nv12->width;
        if (std::abs(fromSeam) < seam) continue;  // filters blur the boundary
        const Colour actual = yuvAt(nv12, x, y);
        ASSERT_TRUE(near(actual, fromSeam < 0 ? left : right, tolerance))
            << testing::PrintToString(actual) << " at " << x << "," << y << " of " << nv12->width
            << "x" << nv12->height;
    }
}

TEST_F(ConverterTest, ConvertsKnownColoursUpToTheEdgeAndNotBeyond) {
    const std::pair<Colour, Colour> colours[] = {{kRed, kRedYuv},
                                                 {kBlue, kBlueYuv},
                                                 {{0, 255, 0}, {145, 54, 34}},
                                                 {{255, 255, 255}, {235, 128, 128}},
                                                 {{0, 0, 0}, {16, 128, 128}},
                                                 {{128, 128, 128}, {126, 128, 128}}};
    for (const auto& [width, height] : {std::pair{64, 32}, {37, 19}, {1, 1}}) {
        for (const auto& [rgb, yuv] : colours) {
            const auto source = makeBuffer(width, height, kRgba8888);
            const auto target = makeBuffer(width, height, kNv12Vemo);
            fill(source, rgb, rgb);
            memset(pixelsOf(target), 0xA5, bytesOf(target).size());
            ASSERT_TRUE(convert(source, target));
            expectHalves(target, yuv, yuv, 0, kColourTolerance);
            std::vector<uint8_t> rest = bytesOf(target);
            rest.erase(rest.begin(),
                       rest.begin() + static_cast<ptrdiff_t>(pixelBytes(width, height, kNv12Vemo)));
            EXPECT_EQ(std::ranges::count(rest, 0xA5), std::ssize(rest));
        }
    }
}

TEST_F(ConverterTest, ScalesToTheSizeOfEachTarget) {
    const struct {
        int format, width, height, targetWidth, targetHeight, smallWidth, smallHeight;
    } cases[] = {{kRgba8888, 128, 96, 128, 96, 64, 48},   {kRgba8888, 128, 96, 64, 40, 32, 20},
                 {kVendorRgb, 128, 96, 192, 144, 96, 72}, {kRgbx8888, 130, 70, 91, 51, 46, 26},
                 {kNv12Vemo, 128, 96, 128, 96, 64, 48},   {kVendorYuv, 128, 96, 66, 50, 32, 24}};
    for (const auto& c : cases) {
        const auto rgba = makeBuffer(c.width, c.height, isNv12(c.format) ? kRgba8888 : c.format);
        fill(rgba, kRed, kBlue);
        auto source = rgba;
        if (isNv12(c.format)) {
            source = makeBuffer(c.width, c.height, c.format);
            ASSERT_TRUE(convert(rgba, source));
        }
        const auto target = makeBuffer(c.targetWidth, c.targetHeight, kNv12Vemo);
        const auto small = makeBuffer(c.smallWidth, c.smallHeight, kNv12Vemo);
        ASSERT_TRUE(convert(source, target, small));
        expectHalves(target, kRedYuv, kBlueYuv, 12, kScaledTolerance);
        expectHalves(small, kRedYuv, kBlueYuv, 12, kScaledTolerance);
    }
}

TEST_F(ConverterTest, RefusesWhatItCannotDoAndSaysWhyOnce) {
    armFault({.operation = "allocate"});
    auto hollow = makeBuffer(64, 64, kRgba8888), boastful = makeBuffer(64, 64, kRgba8888);
    boastful->height = 4096;  // although it has memory for 64 rows
    sp<GraphicBuffer> none, rgba = makeBuffer(64, 64, kRgba8888);
    const auto nv12 = makeBuffer(64, 64, kNv12Vemo), field = makeField(64, 64);
    auto wide = makeBuffer(250, 161, kRgba8888);
    const auto rgbx = makeBuffer(64, 64, kRgbx8888), half = makeBuffer(32, 32, kNv12Vemo);
    uint32_t width = 0, height = 0;
    configures = false;
    EXPECT_FALSE(converter.GetMVbufferSize(width, height)) << "not configured";
    EXPECT_FALSE(convert(rgba, nv12)) << "nor for this";
    ASSERT_TRUE(converter.Configure(wide, 64, 64));
    ASSERT_TRUE(converter.GetMVbufferSize(width, height));
    EXPECT_EQ(std::pair(width, height), std::pair(32U, 11U));
    ASSERT_TRUE(converter.Configure(rgba, 64, 64));
    EXPECT_TRUE(convert(rgba, nv12, half));
    EXPECT_TRUE(estimate(rgbx, rgba, field, field)) << "the reference may have another format";
    const auto otherHalf = makeBuffer(48, 48, kNv12Vemo), other = makeBuffer(64, 64, kRgba8888);

    const std::function<bool()> cases[] = {
        [&] { return convert(none, nv12); },
        [&] { return convert(hollow, nv12); },
        [&] { return convert(boastful, nv12); },
        [&] { return convert(rgba, none); },
        [&] { return convert(rgba, rgba); },
        [&] { return convert(rgba, nv12, hollow); },
        [&] { return convert(rgba, nv12, wide); },
        // These differ from the configuration: in size, format or output size.
        [&] { return convert(wide, nv12); },
        [&] { return convert(rgbx, nv12); },
        [&] { return convert(rgba, nv12, otherHalf); },
        [&] { return estimate(wide, wide, field, field); },
        [&] { return estimate(rgba, wide, field, field); },
        [&] { return estimate(rgba, nv12, field, field); },
        [&] { return estimate(none, none, none, none); },
        [&] { return estimate(rgba, rgba, field, wide); },
        // The current frame was converted without motion, or is not the one converted last.
        [&] { return !convert(rgba, nv12, {}, {}, false) || estimate(rgba, rgba, field, field); },
        [&] { return !convert(other, nv12) || estimate(other, rgba, field, field); },
        // After a failed configuration the converter is not configured.
        [&] { return converter.Configure(none, 64, 64); },
        [&] { return convert(rgba, nv12); },
        [&] { return converter.Configure(rgba, 64, 0); },
    };
    for (size_t i = 0; i < std::size(cases); ++i) {
        errors = 0;
        EXPECT_FALSE(cases[i]()) << i;
        EXPECT_EQ(errors, 1) << i;
    }
    const struct {
        const char* operation;
        int succeed;
    } faults[] = {{"Configure", 0},
                  {"RGBToNV12", 2},  // without it there is no estimate either
                  {"MvBufferGeneration", 3},
                  {"GetMVbufferSize", 3},
                  {"none of them", 4}};
    for (const auto& [operation, succeed] : faults) {
        armFault({.operation = operation});
        const int done = converter.Configure(rgba, 64, 64) + convert(rgba, nv12) +
                         estimate(rgba, rgba, field, field) +
                         converter.GetMVbufferSize(width, height);
        EXPECT_EQ(done, succeed) << operation;
    }
}

}  // namespace
}  // namespace qoz::test
