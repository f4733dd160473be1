// SPDX-License-Identifier: Apache-2.0
// One buffer record for the service. Private to src/.
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

// Deletes a native handle; with `closeFds` closes its descriptors first. Does nothing for null. A
// handle whose descriptors cannot be closed is not deleted.
void releaseNativeHandle(const native_handle_t* handle, bool closeFds);

// A VppBuffer under construction, and the native handles that carry its descriptors into it. The
// descriptors are duplicates, which the record closes when it is destroyed; the handles are deleted
// first. No pixels are copied.
class QueueRecord {
  public:
    using VppBuffer = ::aidl::vendor::vuq::hardware::vpp::VppBuffer;
    using NativeHandle = ::aidl::android::hardware::common::NativeHandle;

    static constexpr size_t kMaxMetaBuffers = 3;  // two vector fields and a half-size copy

    // The result of sharing a buffer's descriptor. NoDescriptor, which is logged, means that the
    // process has no free descriptors.
    enum class Shared { Ok, NoHandle, NoDescriptor };

    explicit QueueRecord(GraphicBufferMapper& mapper) : mMapper(mapper) {}

    QueueRecord(const QueueRecord&) = delete;
    QueueRecord& operator=(const QueueRecord&) = delete;

    VppBuffer& vppBuffer() { return mVppBuffer; }

    // Sets `to` to a duplicate of the buffer's descriptor and `allocLen` to the buffer's allocation
    // size in bytes. The buffer must have memory.
    Shared share(const sp<GraphicBuffer>& buffer, NativeHandle* to, uint32_t* allocLen);

    // Does the same for the metabuffer `index`, which must exist, and sets its name.
    Shared shareMeta(size_t index, const char* name, const sp<GraphicBuffer>& buffer);

  private:
    uint32_t allocationSize(const sp<GraphicBuffer>& buffer) const;

    struct HandleDeleter {
        void operator()(native_handle_t* handle) const { releaseNativeHandle(handle, false); }
    };
    GraphicBufferMapper& mMapper;
    VppBuffer mVppBuffer;
    // After the record, so that they are destroyed first: they refer to descriptors that it owns.
    std::array<std::unique_ptr<native_handle_t, HandleDeleter>, 1 + kMaxMetaBuffers> mHandles;
    size_t mHandleCount = 0;
};

}  // namespace android
