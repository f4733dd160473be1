// SPDX-License-Identifier: Apache-2.0
// NV12 frames in memory that somebody else owns.
#pragma once

#include <host/converter/MotionField.h>
#include <host/platform/BufferLayout.h>

#include <cstddef>
#include <cstdint>

namespace qoz::host::vppservice {

struct FrameSize {
    uint32_t width = 0;
    uint32_t height = 0;

    bool operator==(const FrameSize&) const = default;
};

template <typename Byte>
struct Nv12Planes {
    Byte* luma = nullptr;
    Byte* chroma = nullptr;  // interleaved U and V
    size_t stride = 0;       // bytes, of both planes
    FrameSize size;

    // Bytes and rows of the chroma plane that hold pixels.
    uint32_t chromaBytes() const { return evenUp(size.width); }
    uint32_t chromaRows() const { return evenUp(size.height) / 2; }
};
using Nv12View = Nv12Planes<const uint8_t>;
using Nv12Canvas = Nv12Planes<uint8_t>;

template <typename Byte>
Nv12Planes<Byte> planesAt(Byte* base, FrameSize size) {
    const Nv12Layout layout = nv12Layout(size.width, size.height);
    return {base, base + layout.chromaOffset, layout.stride, size};
}

inline Nv12View viewOf(const Nv12Canvas& canvas) {
    return {canvas.luma, canvas.chroma, canvas.stride, canvas.size};
}

// Both fields of one pair of frames, or neither.
struct MotionFields {
    const MotionVector* forward = nullptr;
    const MotionVector* backward = nullptr;

    explicit operator bool() const { return forward != nullptr && backward != nullptr; }
};

}  // namespace qoz::host::vppservice
