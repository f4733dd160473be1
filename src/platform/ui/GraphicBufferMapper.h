// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cutils/native_handle.h>
#include <utils/Errors.h>
#include <utils/Singleton.h>

#include <cstdint>

namespace android {

class GraphicBufferMapper : public Singleton<GraphicBufferMapper> {
  public:
    // Bytes behind the handle.
    status_t getAllocationSize(buffer_handle_t bufferHandle, uint64_t* outAllocationSize);

  private:
    friend class Singleton<GraphicBufferMapper>;
    GraphicBufferMapper() = default;
};

}  // namespace android
