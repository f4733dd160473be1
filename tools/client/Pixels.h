// SPDX-License-Identifier: Apache-2.0
// Access by the CPU to the pixels of a client's graphic buffers.
#pragma once

#include <ui/GraphicBuffer.h>

#include <cstddef>
#include <utility>

#include "client/Types.h"

namespace qoz::client {

using BufferRef = android::sp<android::GraphicBuffer>;

// A view of an NV12 picture: a luma plane, and a plane of interleaved U and V samples at half the
// resolution, rounded up. Rows of both planes are `stride` bytes apart. The view does not own the
// pixels.
struct Nv12View {
    const uint8_t* luma;
    const uint8_t* chroma;
    int stride;
    Size size;
};

inline Size sizeOf(const BufferRef& buffer) {
    return {buffer->getWidth(), buffer->getHeight()};
}

// Locks a buffer for access by the CPU during the object's life. Throws SessionFailed if the buffer
// cannot be locked.
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
    Nv12View nv12() const {  // only for a buffer in the format kNv12Vemo
        return {mData, mData + stride() * size().height, static_cast<int>(stride()), size()};
    }

  private:
    const BufferRef mBuffer;
    uint8_t* mData = nullptr;
};

}  // namespace qoz::client
