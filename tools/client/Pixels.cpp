// SPDX-License-Identifier: Apache-2.0
#include "client/Pixels.h"

#include <utility>

namespace qoz::client {

LockedPixels::LockedPixels(BufferRef buffer, uint32_t usage) : mBuffer(std::move(buffer)) {
    void* address = nullptr;
    if (mBuffer->lock(usage, &address) != android::OK) {
        throw SessionFailed("the pixels of a graphic buffer cannot be mapped");
    }
    mData = static_cast<uint8_t*>(address);
}

LockedPixels::~LockedPixels() {
    mBuffer->unlock();
}

Nv12View LockedPixels::nv12() const {
    return {mData, mData + stride() * size().height, static_cast<int>(stride()), size()};
}

}  // namespace qoz::client
