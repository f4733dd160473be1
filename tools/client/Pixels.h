// SPDX-License-Identifier: Apache-2.0
// The pixels of graphic buffers, as a client on the CPU reaches them.
#pragma once

#include <ui/GraphicBuffer.h>

#include <cstddef>
#include <utility>

#include "client/Types.h"

namespace qoz::client {

using BufferRef = android::sp<android::GraphicBuffer>;

// Luma, then interleaved U and V at half the size, both with rows of `stride` bytes. An odd last
// row or column has its own chroma.
struct Nv12View {
    const uint8_t* luma;
    const uint8_t* chroma;
    int stride;
    Size size;
};

inline Size sizeOf(const BufferRef& buffer) {
    return {buffer->getWidth(), buffer->getHeight()};
}

// The pixels of a buffer for as long as the object lives. Throws SessionFailed when they cannot be
// had.
class LockedPixels {
  public:
    LockedPixels(BufferRef buffer, uint32_t usage) : mBuffer(std::move(buffer)) {
        void* address = nullptr;
        if (mBuffer->lock(usage, &address) != android::OK)
            throw SessionFailed("the pixels of a graphic buffer cannot be mapped");
        mData = static_cast<uint8_t*>(address);
    }
    ~LockedPixels() { mBuffer->unlock(); }

    LockedPixels(const LockedPixels&) = delete;
    LockedPixels& operator=(const LockedPixels&) = delete;

    uint8_t* data() const { return mData; }
    size_t stride() const { return mBuffer->getStride(); }  // pixels
    Size size() const { return sizeOf(mBuffer); }
    Nv12View nv12() const {  // of a buffer in that format
        return {mData, mData + stride() * size().height, static_cast<int>(stride()), size()};
    }

  private:
    const BufferRef mBuffer;
    uint8_t* mData = nullptr;
};

}  // namespace qoz::client
