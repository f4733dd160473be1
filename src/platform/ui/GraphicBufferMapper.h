// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cutils/native_handle.h>
#include <utils/Errors.h>
#include <utils/Singleton.h>

#include <cstdint>

namespace android {

// Answers questions about graphic buffers that are known by their handle.
class GraphicBufferMapper : public Singleton<GraphicBufferMapper> {
  public:
    // Returns the size of the allocation behind the handle, in bytes.
    status_t getAllocationSize(buffer_handle_t bufferHandle, uint64_t* outAllocationSize);

  private:
    friend class Singleton<GraphicBufferMapper>;
    GraphicBufferMapper() = default;
};

}  // namespace android
