// SPDX-License-Identifier: Apache-2.0
#include "host/vppservice/Scaler.h"

#include <libyuv/scale.h>
#include <libyuv/scale_uv.h>

#include <cstring>
#include <new>

namespace qoz::host::vppservice {
namespace {

constexpr size_t kAlignment = 64;  // alignment in bytes that the library needs
constexpr double kLobes = 3;

size_t aligned(size_t bytes) {
    return (bytes + kAlignment - 1) / kAlignment * kAlignment;
}

zimg_image_format formatOf(FrameSize size) {
    zimg_image_format format;
    zimg_image_format_default(&format, ZIMG_API_VERSION);
    format.width = size.width;
    format.height = size.height;
    format.pixel_type = ZIMG_PIXEL_BYTE;
    format.color_family = ZIMG_COLOR_GREY;
    // The ranges of input and output are the same, so that the library converts no values.
    format.pixel_range = ZIMG_RANGE_FULL;
    return format;
}

FrameSize chromaSize(FrameSize size) {
    return {(size.width + 1) / 2, (size.height + 1) / 2};
}

}  // namespace

PlaneScaler::Memory PlaneScaler::allocate(size_t bytes) {
    Memory memory(static_cast<uint8_t*>(aligned_alloc(kAlignment, aligned(bytes))));
    if (memory == nullptr) throw std::bad_alloc();
    return memory;
}

bool PlaneScaler::prepare(FrameSize from, FrameSize to) {
    if (mGraph != nullptr && from == mFrom && to == mTo) return true;
    const zimg_image_format in = formatOf(from);
    const zimg_image_format out = formatOf(to);
    zimg_graph_builder_params parameters;
    zimg_graph_builder_params_default(&parameters, ZIMG_API_VERSION);
    parameters.resample_filter = ZIMG_RESIZE_LANCZOS;
    parameters.filter_param_a = kLobes;
    parameters.dither_type = ZIMG_DITHER_NONE;
    mGraph.reset(zimg_filter_graph_build(&in, &out, &parameters));
    size_t spare = 0;
    if (mGraph == nullptr || zimg_filter_graph_get_tmp_size(mGraph.get(), &spare) != 0) {
        mGraph.reset();
        return false;
    }
    mFrom = from;
    mTo = to;
    mFromStride = aligned(from.width);
    mToStride = aligned(to.width);
    mIn = allocate(mFromStride * from.height);
    mOut = allocate(mToStride * to.height);
    mSpare = allocate(spare + kAlignment);
    return true;
}

void PlaneScaler::scale(const uint8_t* from, size_t fromStride, uint8_t* to, size_t toStride,
                        int step) {
    const auto every = static_cast<size_t>(step);
    for (size_t y = 0; y < mFrom.height; ++y) {
        const uint8_t* source = from + y * fromStride;
        uint8_t* row = mIn.get() + y * mFromStride;
        for (size_t x = 0; x < mFrom.width; ++x)
            row[x] = source[x * every];
    }
    zimg_image_buffer_const in = {ZIMG_API_VERSION, {}};
    zimg_image_buffer out = {ZIMG_API_VERSION, {}};
    in.plane[0] = {mIn.get(), static_cast<ptrdiff_t>(mFromStride), ZIMG_BUFFER_MAX};
    out.plane[0] = {mOut.get(), static_cast<ptrdiff_t>(mToStride), ZIMG_BUFFER_MAX};
    zimg_filter_graph_process(mGraph.get(), &in, &out, mSpare.get(), nullptr, nullptr, nullptr,
                              nullptr);
    for (size_t y = 0; y < mTo.height; ++y) {
        const uint8_t* row = mOut.get() + y * mToStride;
        uint8_t* target = to + y * toStride;
        for (size_t x = 0; x < mTo.width; ++x)
            target[x * every] = row[x];
    }
}

void FrameScaler::scale(const Nv12View& from, const Nv12Canvas& to) {
    if (mLuma.prepare(from.size, to.size) &&
        mChroma.prepare(chromaSize(from.size), chromaSize(to.size))) {
        mLuma.scale(from.luma, from.stride, to.luma, to.stride, 1);
        for (int half = 0; half < 2; ++half)
            mChroma.scale(from.chroma + half, from.stride, to.chroma + half, to.stride, 2);
        return;
    }
    libyuv::NV12Scale(from.luma, static_cast<int>(from.stride), from.chroma,
                      static_cast<int>(from.stride), static_cast<int>(from.size.width),
                      static_cast<int>(from.size.height), to.luma, static_cast<int>(to.stride),
                      to.chroma, static_cast<int>(to.stride), static_cast<int>(to.size.width),
                      static_cast<int>(to.size.height), libyuv::kFilterBilinear);
}

}  // namespace qoz::host::vppservice
