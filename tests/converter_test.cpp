// The converter: NV12 conversion and scaling, dumps, and what it refuses.
#include <png.h>
#include <support/ConverterFixture.h>
#include <sys/eventfd.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <functional>
#include <latch>
#include <string>
#include <thread>
#include <utility>
#include <vector>

namespace qoz::test {
namespace {

using Colour = std::array<uint8_t, 3>;  // R, G, B or Y, U, V

void fill(const sp<GraphicBuffer>& rgba, uint32_t fromX, uint32_t toX, Colour colour) {
    for (uint32_t y = 0; y < rgba->getHeight(); ++y) {
        uint8_t* row = pixelsOf(rgba) + rgbaStride(rgba->getWidth()) * y;
        for (uint32_t x = fromX; x < toX; ++x) {
            memcpy(row + x * 4, colour.data(), 3);
            row[x * 4 + 3] = 0;  // alpha has no part in anything
        }
    }
}

Colour yuvAt(const sp<GraphicBuffer>& nv12, uint32_t x, uint32_t y) {
    const Nv12Layout layout = nv12Layout(nv12->getWidth(), nv12->getHeight());
    const uint8_t* pixels = pixelsOf(nv12);
    const uint8_t* chroma = pixels + layout.chromaOffset + layout.stride * (y / 2) + x / 2 * 2;
    return {pixels[layout.stride * y + x], chroma[0], chroma[1]};
}

bool near(const Colour& a, const Colour& b, int tolerance) {
    for (size_t i = 0; i < a.size(); ++i) {
        if (std::abs(a[i] - b[i]) > tolerance) return false;
    }
    return true;
}

// BT.601, limited range; the fixed-point code is within 2 of the exact values.
constexpr Colour kRed{255, 0, 0}, kRedYuv{82, 90, 240};
constexpr Colour kBlue{0, 0, 255}, kBlueYuv{41, 240, 110};
constexpr int kColourTolerance = 2;
// The scaler's filter weighs chroma in 7 bits, which loses 1/128 of it and the rounding each time.
constexpr int kScaledTolerance = 6;

TEST_F(ConverterTest, ConvertsKnownColoursUpToTheEdgeAndNotBeyond) {
    const struct {
        Colour rgb, yuv;
    } kCases[] = {{kRed, kRedYuv},
                  {kBlue, kBlueYuv},
                  {{0, 255, 0}, {145, 54, 34}},
                  {{255, 255, 255}, {235, 128, 128}},
                  {{0, 0, 0}, {16, 128, 128}},
                  {{128, 128, 128}, {126, 128, 128}}};
    for (const auto& [width, height] : {std::pair{64U, 32U}, {37U, 19U}, {1U, 1U}}) {
        for (const auto& [rgb, yuv] : kCases) {
            const auto source = makeBuffer(width, height, kRgba8888);
            const auto target = makeBuffer(width, height, kNv12Vemo);
            fill(source, 0, width, rgb);
            const size_t used = pixelBytes(width, height, kNv12Vemo);
            std::vector<uint8_t> blank(bytesOf(target).size(), 0xA5);
            memcpy(pixelsOf(target), blank.data(), blank.size());
            ASSERT_TRUE(convert(source, target));
            for (uint32_t i = 0; i < width * height; ++i) {
                const Colour actual = yuvAt(target, i % width, i / width);
                ASSERT_TRUE(near(actual, yuv, kColourTolerance))
                    << "pixel " << i << " of " << width << "x" << height << ": " << int{actual[0]}
                    << " " << int{actual[1]} << " " << int{actual[2]};
            }
            const auto written = bytesOf(target);
            EXPECT_TRUE(std::equal(written.begin() + static_cast<ptrdiff_t>(used), written.end(),
                                   blank.begin()));
        }
    }
}

TEST_F(ConverterTest, ScalesToTheSizeOfEachTarget) {
    const struct {
        int32_t sourceFormat;
        uint32_t width, height, targetWidth, targetHeight, smallWidth, smallHeight;
    } kCases[] = {
        {kRgba8888, 128, 96, 128, 96, 64, 48},   {kRgba8888, 128, 96, 64, 40, 32, 20},
        {kVendorRgb, 128, 96, 192, 144, 96, 72}, {kRgbx8888, 130, 70, 91, 51, 45, 25},
        {kNv12Vemo, 128, 96, 128, 96, 64, 48},   {kVendorYuv, 128, 96, 66, 50, 33, 25},
    };
    for (const auto& c : kCases) {
        auto source = makeBuffer(c.width, c.height, isNv12(c.sourceFormat) ? 1 : c.sourceFormat);
        fill(source, 0, c.width / 2, kRed);
        fill(source, c.width / 2, c.width, kBlue);
        if (isNv12(c.sourceFormat)) {
            const auto rgba = source;
            source = makeBuffer(c.width, c.height, c.sourceFormat);
            ASSERT_TRUE(convert(rgba, source));
        }
        const auto target = makeBuffer(c.targetWidth, c.targetHeight, kNv12Vemo);
        const auto small = makeBuffer(c.smallWidth, c.smallHeight, kNv12Vemo);
        ASSERT_TRUE(convert(source, target, small));
        for (const auto& scaled : {target, small}) {
            const uint32_t width = scaled->getWidth(), height = scaled->getHeight();
            for (uint32_t i = 0; i < width * height; ++i) {
                const int fromSeam = static_cast<int>(i % width) * 2 - static_cast<int>(width);
                if (std::abs(fromSeam) < 12) continue;  // filters blur it
                const Colour actual = yuvAt(scaled, i % width, i / width);
                ASSERT_TRUE(near(actual, fromSeam < 0 ? kRedYuv : kBlueYuv, kScaledTolerance))
                    << c.width << " wide to " << width << "x" << height << ", pixel " << i % width
                    << "," << i / width << ": " << int{actual[0]} << " " << int{actual[1]} << " "
                    << int{actual[2]};
            }
        }
    }
}

TEST_F(ConverterTest, ReadsTheSourceOnlyOnceItsFenceHasSignalled) {
    const auto source = makeBuffer(1280, 720, kRgba8888);
    const auto target = makeBuffer(1280, 720, kNv12Vemo);
    fill(source, 0, 1280, kBlue);
    const int signal = eventfd(0, EFD_CLOEXEC);
    const sp<Fence> fence = new Fence(dup(signal));
    std::latch begun(1);
    std::thread renderer([&] {
        begun.wait();
        fill(source, 0, 1280, kRed);
        eventfd_write(signal, 1);
    });
    begun.count_down();
    EXPECT_TRUE(convert(source, target, {}, fence));
    renderer.join();
    EXPECT_TRUE(near(yuvAt(target, 1279, 719), kRedYuv, kColourTolerance));
    close(signal);

    EXPECT_TRUE(convert(source, target, {}, Fence::NO_FENCE));
    const auto before = bytesOf(target);
    fill(source, 0, 1280, kBlue);
    EXPECT_FALSE(convert(source, target, {}, new Fence(eventfd(0, EFD_CLOEXEC))));
    EXPECT_EQ(bytesOf(target), before);
    EXPECT_EQ(errors, 1);
}

TEST_F(ConverterTest, FieldSizeFollowsTheConfiguration) {
    uint32_t width = 0, height = 0;
    EXPECT_FALSE(converter.GetMVbufferSize(width, height));
    const std::array<uint32_t, 4> kCases[] = {{1280, 720, 80, 45}, {250, 161, 16, 11}};
    for (const auto& [sourceWidth, sourceHeight, columns, rows] : kCases) {
        auto source = makeBuffer(sourceWidth, sourceHeight, kRgba8888);
        ASSERT_TRUE(converter.Configure(source, 64, 64));
        ASSERT_TRUE(converter.GetMVbufferSize(width, height));
        EXPECT_EQ(std::pair(width, height), std::pair(columns, rows));
    }
}

TEST_F(ConverterTest, RefusesWhatItCannotDoAndSaysWhyOnce) {
    armFault({.operation = "allocate"});
    auto hollow = makeBuffer(64, 64, kRgba8888);
    sp<GraphicBuffer> none, rgba = makeBuffer(64, 64, kRgba8888),
                            wide = makeBuffer(80, 64, kRgba8888),
                            nv12 = makeBuffer(64, 64, kNv12Vemo), field = makeField(64, 64);
    auto boastful = makeBuffer(64, 64, kRgba8888);
    boastful->height = 4096;  // and memory for 64 rows
    ASSERT_TRUE(converter.Configure(rgba, 64, 64));
    uint32_t size = 0;
    const auto broken = [](const char* operation, const std::function<bool()>& call) {
        return [=] {
            armFault({.operation = operation});
            return call();
        };
    };
    const std::pair<const char*, std::function<bool()>> kCases[] = {
        {"configure null", [&] { return converter.Configure(none, 64, 64); }},
        {"configure no output", [&] { return converter.Configure(rgba, 64, 0); }},
        {"source null", [&] { return convert(none, nv12); }},
        {"source hollow", [&] { return convert(hollow, nv12); }},
        {"source without its bytes", [&] { return convert(boastful, nv12); }},
        {"target null", [&] { return convert(rgba, none); }},
        {"target not NV12", [&] { return convert(rgba, rgba); }},
        {"downscaled hollow", [&] { return convert(rgba, nv12, hollow); }},
        {"downscaled not NV12", [&] { return convert(rgba, nv12, wide); }},
        {"frames of two sizes", [&] { return estimate(rgba, wide, field, field); }},
        {"frames of two layouts", [&] { return estimate(rgba, nv12, field, field); }},
        {"all null", [&] { return estimate(none, none, none, none); }},
        {"field too large", [&] { return estimate(rgba, rgba, field, wide); }},
        {"faulty Configure",
         broken("Configure", [&] { return converter.Configure(rgba, 64, 64); })},
        {"faulty RGBToNV12", broken("RGBToNV12", [&] { return convert(rgba, nv12); })},
        {"faulty MvBufferGeneration",
         broken("MvBufferGeneration", [&] { return estimate(rgba, rgba, field, field); })},
        {"faulty GetMVbufferSize",
         broken("GetMVbufferSize", [&] { return converter.GetMVbufferSize(size, size); })},
    };
    for (const auto& [name, call] : kCases) {
        errors = 0;
        EXPECT_FALSE(call()) << name;
        EXPECT_EQ(errors, 1) << name;
    }
    EXPECT_TRUE(convert(rgba, nv12));
    EXPECT_TRUE(estimate(rgba, rgba, field, field));
}

// ---- Dumps ------------------------------------------------------------------------------------

struct Png {
    uint32_t width = 0, height = 0;
    std::vector<uint8_t> rgb;

    Colour at(uint32_t x, uint32_t y) const {
        const uint8_t* pixel = rgb.data() + (size_t{y} * width + x) * 3;
        return {pixel[0], pixel[1], pixel[2]};
    }
};

Png readPng(const std::filesystem::path& path) {
    png_image header{};
    header.version = PNG_IMAGE_VERSION;
    EXPECT_TRUE(png_image_begin_read_from_file(&header, path.c_str())) << path;
    header.format = PNG_FORMAT_RGB;
    Png png{header.width, header.height, std::vector<uint8_t>(PNG_IMAGE_SIZE(header))};
    EXPECT_TRUE(png_image_finish_read(&header, nullptr, png.rgb.data(), 0, nullptr)) << path;
    return png;
}

TEST_F(ConverterTest, DumpsPicturesAndFieldsThatCanBeRead) {
    const auto folder =
        std::filesystem::path(testing::TempDir()) / ("converter-dumps-" + std::to_string(getpid()));
    ASSERT_TRUE(setProperty("debug.qoz.dump.dir", (folder / "deeper").string()));
    auto source = makeBuffer(130, 70, kRgba8888), target = makeBuffer(130, 70, kNv12Vemo);
    fill(source, 0, 130, kRed);
    ASSERT_TRUE(convert(source, target));
    auto field = makeField(64, 32);
    MotionVector left{-30, 0, 0, 0}, right{30, 0, 0, 0};
    memcpy(pixelsOf(field), &left, sizeof(left));
    memcpy(pixelsOf(field) + sizeof(left), &right, sizeof(right));
    converter.DumpBuffer(source, "QOZ_Source", 7, "VEMO_RGBA8888");
    converter.DumpBuffer(target, "QOZ_Converted", 12, "VEMO_NV12");
    converter.DumpBuffer(field, "FW_MV", 123456, "RGBA8888");
    EXPECT_EQ(errors, 0);

    for (const char* name : {"00007_QOZ_Source.png", "00012_QOZ_Converted.png"}) {
        const Png picture = readPng(folder / "deeper" / name);
        ASSERT_EQ(std::pair(picture.width, picture.height), std::pair(130U, 70U));
        EXPECT_TRUE(near(picture.at(129, 69), kRed, 4)) << name;
    }
    const Png drawing = readPng(folder / "deeper" / "123456_FW_MV.png");
    ASSERT_EQ(std::pair(drawing.width, drawing.height), std::pair(64U, 32U));
    EXPECT_NE(drawing.at(0, 0), drawing.at(16, 0)) << "directions look alike";
    EXPECT_NE(drawing.at(0, 0), drawing.at(8, 8)) << "no arrow";
    EXPECT_EQ(drawing.at(32, 0), drawing.at(40, 8)) << "an arrow on a block at rest";

    std::ofstream(folder / "file") << "in the way";
    ASSERT_TRUE(setProperty("debug.qoz.dump.dir", (folder / "file").string()));
    converter.DumpBuffer(source, "QOZ_Source", 8, "VEMO_RGBA8888");
    sp<GraphicBuffer> none;
    converter.DumpBuffer(none, "QOZ_Source", 9, "VEMO_RGBA8888");
    EXPECT_EQ(errors, 2);
    std::filesystem::remove_all(folder);
}

}  // namespace
}  // namespace qoz::test
