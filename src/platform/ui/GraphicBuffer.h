// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cutils/native_handle.h>
#include <utils/Errors.h>
#include <utils/RefBase.h>
#include <utils/StrongPointer.h>

#include <cstdint>
#include <string>

// The C structure of a graphic buffer.
struct ANativeWindowBuffer {
    int width = 0;
    int height = 0;
    int stride = 0;  // in pixels
    int format = 0;
    uint64_t usage = 0;
    buffer_handle_t handle = nullptr;
};

namespace android {

using PixelFormat = int32_t;

// A buffer of pixel memory that is shared by descriptor. The descriptor is the first entry in the
// data of the handle.
class GraphicBuffer : public ANativeWindowBuffer, public RefBase {
  public:
    // Usage bits. lock() requires a software usage.
    enum {
        USAGE_SW_READ_OFTEN = 0x3,
        USAGE_SW_WRITE_OFTEN = 0x30,
        USAGE_HW_TEXTURE = 0x100,
        USAGE_HW_RENDER = 0x200,
    };

    // Allocates the memory. If that fails, the handle is null, initCheck() is not OK, and size,
    // format and usage are 0.
    GraphicBuffer(uint32_t inWidth, uint32_t inHeight, PixelFormat inFormat, uint32_t inUsage,
                  std::string requestorName = "<Unknown>");

    status_t initCheck() const { return mInitCheck; }

    uint32_t getWidth() const { return static_cast<uint32_t>(width); }
    uint32_t getHeight() const { return static_cast<uint32_t>(height); }
    uint32_t getStride() const { return static_cast<uint32_t>(stride); }
    uint64_t getUsage() const { return usage; }
    PixelFormat getPixelFormat() const { return format; }
    // Returns this object as its C structure. The object keeps ownership of the handle.
    ANativeWindowBuffer* getNativeBuffer() const {
        return static_cast<ANativeWindowBuffer*>(const_cast<GraphicBuffer*>(this));
    }

    // Maps the memory into this process for the CPU. Each lock() must be followed by an unlock().
    status_t lock(uint32_t inUsage, void** vaddr);
    status_t unlock();

  protected:
    ~GraphicBuffer() override;

  private:
    status_t mInitCheck = NO_INIT;
};

}  // namespace android
