// SPDX-License-Identifier: Apache-2.0
// A graphic buffer that is mapped for the CPU.
#pragma once

#include <host/platform/BufferLayout.h>
#include <ui/GraphicBuffer.h>

#include <cstdint>
#include <optional>
#include <utility>

namespace qoz::host {

// A view of NV12 pixels that it does not own.
struct Nv12Picture {
    uint8_t* luma;
    uint8_t* chroma;
    int stride;  // bytes, both planes
    int width;
    int height;

    static Nv12Picture over(uint8_t* pixels, uint32_t width, uint32_t height);
};

// Holds a reference to the buffer and keeps it locked for reading and writing until the object is
// destroyed.
class MappedBuffer {
  public:
    // Maps a buffer. Returns nothing if the buffer is null, has no memory, has an unknown format or
    // too few bytes, or cannot be locked. The reason is logged with the `operation` and the
    // buffer's `role` in it.
    static std::optional<MappedBuffer> map(const android::sp<android::GraphicBuffer>& buffer,
                                           const char* operation, const char* role);

    MappedBuffer(MappedBuffer&& other) noexcept
        : mBuffer(std::move(other.mBuffer)), mPixels(std::exchange(other.mPixels, nullptr)) {}
    MappedBuffer& operator=(MappedBuffer&& other) noexcept {
        std::swap(mBuffer, other.mBuffer);
        std::swap(mPixels, other.mPixels);
        return *this;
    }
    ~MappedBuffer();

    uint8_t* pixels() const { return mPixels; }
    uint32_t width() const { return mBuffer->getWidth(); }
    uint32_t height() const { return mBuffer->getHeight(); }
    bool nv12() const { return isNv12(mBuffer->getPixelFormat()); }

    // The pixels of an NV12 buffer. Call it only if nv12() is true.
    Nv12Picture picture() const { return Nv12Picture::over(mPixels, width(), height()); }

    bool sameShape(const MappedBuffer& other) const {
        return width() == other.width() && height() == other.height() && nv12() == other.nv12();
    }

  private:
    MappedBuffer(android::sp<android::GraphicBuffer> buffer, uint8_t* pixels)
        : mBuffer(std::move(buffer)), mPixels(pixels) {}

    android::sp<android::GraphicBuffer> mBuffer;
    uint8_t* mPixels;  // null after a move: the new owner unlocks
};

}  // namespace qoz::host
