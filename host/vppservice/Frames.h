// SPDX-License-Identifier: Apache-2.0
// Views of NV12 frames, which do not own the memory.
#pragma once

#include <host/converter/MotionField.h>
#include <host/platform/BufferLayout.h>

#include <cstddef>
#include <cstdint>

namespace qoz::host::vppservice {

// The size of a frame in pixels.
struct FrameSize {
    uint32_t width = 0;
    uint32_t height = 0;

    bool operator==(const FrameSize&) const = default;
};

// The planes of a frame; a view may be read, a canvas may be written.
template <typename Byte>
struct Nv12Planes {
    Byte* luma = nullptr;
    Byte* chroma = nullptr;  // interleaved U and V
    size_t stride = 0;       // bytes, of both planes
    FrameSize size;

    // The bytes in a row of the chroma plane, and its rows.
    uint32_t chromaBytes() const { return evenUp(size.width); }
    uint32_t chromaRows() const { return evenUp(size.height) / 2; }
};
using Nv12View = Nv12Planes<const uint8_t>;
using Nv12Canvas = Nv12Planes<uint8_t>;

// Returns the planes of a frame of this size that begins at `base` in the interface's layout.
template <typename Byte>
Nv12Planes<Byte> planesAt(Byte* base, FrameSize size) {
    const Nv12Layout layout = nv12Layout(size.width, size.height);
    return {base, base + layout.chromaOffset, layout.stride, size};
}

inline Nv12View viewOf(const Nv12Canvas& canvas) {
    return {canvas.luma, canvas.chroma, canvas.stride, canvas.size};
}

// The motion fields of a pair of sources; both are null if there are none.
struct MotionFields {
    const MotionVector* forward = nullptr;
    const MotionVector* backward = nullptr;

    explicit operator bool() const { return forward != nullptr && backward != nullptr; }
};

}  // namespace qoz::host::vppservice
