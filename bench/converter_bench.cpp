// SPDX-License-Identifier: Apache-2.0
// The host simulator's converter compared with direct calls of libyuv for the same work: the
// conversion from RGBA to NV12 and a copy of half the size. Both work on the calling thread.
#include <Rgb2Yuv.h>
#include <libyuv/convert_from_argb.h>
#include <libyuv/scale.h>
#include <ui/Fence.h>

#include <cstdio>
#include <cstdlib>

#include "support/Buffers.h"
#include "support/Rounds.h"

namespace qoz::bench {
namespace {

using android::GraphicBuffer;
using android::sp;

constexpr int kFrames = 20;  // per round
constexpr double kAim = 1.05;

// Returns the address of the pixels. It stays valid after unlock(), because the host simulator
// keeps a buffer mapped for its whole life.
uint8_t* pixelsOf(const sp<GraphicBuffer>& buffer) {
    void* pixels = nullptr;
    if (buffer->lock(GraphicBuffer::USAGE_SW_WRITE_OFTEN, &pixels) != android::OK) {
        std::fprintf(stderr, "converter_bench: a buffer cannot be mapped\n");
        std::exit(1);
    }
    buffer->unlock();
    return static_cast<uint8_t*>(pixels);
}

// A source and the buffers that the converter writes.
struct Frames {
    Frames(uint32_t width, uint32_t height)
        : source(makeBuffer(width, height, kRgba)),
          target(makeBuffer(width, height, kNv12)),
          half(makeBuffer(width / 2, height / 2, kNv12)) {
        uint8_t* pixels = pixelsOf(source);
        for (size_t i = 0; i < size_t{4} * width * height; ++i)
            pixels[i] = static_cast<uint8_t>(i * 7 + i / 4096);
    }
    sp<GraphicBuffer> source, target, half;
};

// The direct calls of libyuv.
struct Straight {
    explicit Straight(const Frames& frames)
        : width(static_cast<int>(frames.source->getWidth())),
          height(static_cast<int>(frames.source->getHeight())),
          source(pixelsOf(frames.source)),
          target(pixelsOf(frames.target)),
          half(pixelsOf(frames.half)) {}

    void frame() const {
        const int small = width / 2;
        uint8_t* chroma = target + width * height;
        libyuv::ABGRToNV12(source, 4 * width, target, width, chroma, width, width, height);
        libyuv::NV12Scale(target, width, chroma, width, width, height, half, small,
                          half + small * (height / 2), small, small, height / 2,
                          libyuv::kFilterBox);
    }

    int width, height;
    uint8_t *source, *target, *half;
};

// Arguments: width and height.
void converter(benchmark::State& state) {
    const auto width = static_cast<uint32_t>(state.range(0));
    const auto height = static_cast<uint32_t>(state.range(1));
    Frames frames(width, height);
    const Straight straight(frames);
    android::Rgb2Yuv rgb2yuv;
    rgb2yuv.Configure(frames.source, width, height);
    const auto convert = [&] {
        rgb2yuv.RGBToNV12(frames.source, frames.target, frames.half, true,
                          android::Fence::NO_FENCE);
    };
    convert();  // the kernel provides the pages at the first access
    for (auto _ : state) {
        const Rounds all = inTurn(
            kFrames, [&] { return timeCalls(1, convert); },
            [&] { return timeCalls(1, [&] { straight.frame(); }); });
        report(state, "converter: NV12 and half-size copy, " + std::to_string(height) + "p", all,
               kAim);
    }
}
BENCHMARK(converter)->Args({1280, 720})->Args({1920, 1080})->Iterations(1);

}  // namespace
}  // namespace qoz::bench
