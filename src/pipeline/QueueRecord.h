// SPDX-License-Identifier: Apache-2.0
// One record on its way to the service. Private to src/.
#pragma once

#include <aidl/android/hardware/common/NativeHandle.h>
#include <aidl/vendor/vuq/hardware/vpp/VppBuffer.h>
#include <cutils/native_handle.h>
#include <ui/GraphicBuffer.h>
#include <ui/GraphicBufferMapper.h>

#include <array>
#include <cstdint>
#include <memory>

namespace android {

// Deletes a native handle, after closing its descriptors if `closeFds`. Null is nothing to release,
// and a handle whose descriptors cannot be closed is kept.
void releaseNativeHandle(const native_handle_t* handle, bool closeFds);

// A VppBuffer under construction, with the native handles that its descriptors pass through.
// Descriptors are duplicates and end with the record; the handles are deleted first. No pixel is
// copied.
class QueueRecord {
  public:
    using VppBuffer = ::aidl::vendor::vuq::hardware::vpp::VppBuffer;
    using NativeHandle = ::aidl::android::hardware::common::NativeHandle;

    static constexpr size_t kMaxMetaBuffers = 3;  // two vector fields and a half-size copy

    // How sharing a buffer's descriptor went. NoDescriptor, with a message: the process has none
    // left.
    enum class Shared { Ok, NoHandle, NoDescriptor };

    explicit QueueRecord(GraphicBufferMapper& mapper) : mMapper(mapper) {}
    ~QueueRecord();

    QueueRecord(const QueueRecord&) = delete;
    QueueRecord& operator=(const QueueRecord&) = delete;

    VppBuffer& vppBuffer() { return mVppBuffer; }

    // Sets `to` to a duplicate of the buffer's descriptor and `allocLen` to its allocation size in
    // bytes. The buffer has memory.
    Shared share(const sp<GraphicBuffer>& buffer, NativeHandle* to, uint32_t* allocLen);

    // The same for the metabuffer `index`, which exists, under this name.
    Shared shareMeta(size_t index, const char* name, const sp<GraphicBuffer>& buffer);

  private:
    uint32_t allocationSize(const sp<GraphicBuffer>& buffer) const;

    struct HandleDeleter {
        void operator()(native_handle_t* handle) const { releaseNativeHandle(handle, false); }
    };
    GraphicBufferMapper& mMapper;
    VppBuffer mVppBuffer;
    std::array<std::unique_ptr<native_handle_t, HandleDeleter>, 1 + kMaxMetaBuffers> mHandles;
    size_t mHandleCount = 0;
};

}  // namespace android
