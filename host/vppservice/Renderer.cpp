// SPDX-License-Identifier: Apache-2.0
#include "host/vppservice/Renderer.h"

#include <libyuv/scale.h>

#include <algorithm>
#include <utility>

namespace qoz::host::vppservice {
namespace {

constexpr int kMostDetail = 16;  // the largest change of luma

// Compares the areas.
bool isLarger(FrameSize size, FrameSize than) {
    return uint64_t{size.width} * size.height > uint64_t{than.width} * than.height;
}

size_t bytesOf(FrameSize size) {
    return nv12Layout(size.width, size.height).size;
}

// Adds half of the difference between a row and its smooth version, within the limit.
void raiseRow(const uint8_t* from, const uint8_t* smooth, uint8_t* to, uint32_t width) {
    for (uint32_t i = 0; i < width; ++i) {
        const int detail = std::clamp((from[i] - smooth[i]) / 2, -kMostDetail, kMostDetail);
        to[i] = static_cast<uint8_t>(std::clamp(from[i] + detail, 0, 255));
    }
}

}  // namespace

Source Renderer::open(ImportedBuffer input) {
    Source source;
    source.timestamp = unsignedOf(input.record.timestamp);
    source.number = ++mOpened;
    source.view = input.inputView();
    source.input = std::move(input);
    const PortSizes& sizes = source.input->sizes;
    if (!isLarger(sizes.output, sizes.input)) return source;
    const Nv12View half = source.input->halfView();
    if (half.luma != nullptr && isLarger(sizes.input, half.size)) {
        const Nv12View queued = source.view;
        raiseDetail(queued, half, ownCanvas(source));
    }
    return source;
}

// Moves the view of the source to memory of its own, whose content is unspecified.
Nv12Canvas Renderer::ownCanvas(Source& source) {
    source.own = std::exchange(mSpare, {});
    source.own.resize(bytesOf(source.view.size));
    const Nv12Canvas canvas = planesAt<uint8_t>(source.own.data(), source.view.size);
    source.view = viewOf(canvas);
    return canvas;
}

// Writes the source with more luma detail to `to`. The half-size frame, scaled to the source's
// size, is a smoother version of it; what the source has beyond that is detail.
void Renderer::raiseDetail(const Nv12View& from, const Nv12View& half, const Nv12Canvas& to) {
    const FrameSize size = from.size;
    copyFrame(from, to);
    mSmooth.resize(size_t{size.width} * size.height);
    libyuv::ScalePlane(half.luma, static_cast<int>(half.stride), static_cast<int>(half.size.width),
                       static_cast<int>(half.size.height), mSmooth.data(),
                       static_cast<int>(size.width), static_cast<int>(size.width),
                       static_cast<int>(size.height), libyuv::kFilterBilinear);
    for (uint32_t row = 0; row < size.height; ++row) {
        raiseRow(from.luma + row * from.stride, mSmooth.data() + size_t{row} * size.width,
                 to.luma + row * to.stride, size.width);
    }
}

void Renderer::beginInterval(const Source& older, const Source& newer) {
    mInterpolator.beginInterval({older.view, older.number}, {newer.view, newer.number},
                                newer.input->motion());
}

void Renderer::writeBetween(const Source& older, const Source& newer, Phase phase,
                            const Nv12Canvas& to) {
    const FrameSize size = newer.view.size;
    if (size == to.size) {
        mInterpolator.write(older.view, newer.view, phase, to);
        return;
    }
    mBetween.resize(bytesOf(size));
    const Nv12Canvas between = planesAt<uint8_t>(mBetween.data(), size);
    mInterpolator.write(older.view, newer.view, phase, between);
    mScaler.scale(viewOf(between), to);
}

void Renderer::write(const Source& source, const Nv12Canvas& to) {
    if (source.view.size == to.size) {
        copyFrame(source.view, to);
    } else {
        mScaler.scale(source.view, to);
    }
}

void Renderer::keepCopy(Source& source) {
    if (!source.own.empty()) return;
    const Nv12View queued = source.view;
    copyFrame(queued, ownCanvas(source));
}

void Renderer::recycle(Source source) {
    if (source.own.capacity() > mSpare.capacity()) mSpare = std::move(source.own);
}

}  // namespace qoz::host::vppservice
