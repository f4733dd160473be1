// One record on its way to the service. Private to src/.
#pragma once

#include <aidl/android/hardware/common/NativeHandle.h>
#include <cutils/native_handle.h>
#include <qoz/VppComponent.h>

#include <array>
#include <cstdint>
#include <memory>

namespace android {

// A VppBuffer under construction, with the native handles that its descriptors pass through.
// Descriptors are duplicates and end with the record; the handles are deleted first. No pixel is
// copied.
class VppComponent::QueueRecord {
  public:
    static constexpr size_t kMaxMetaBuffers = 3;  // two vector fields and a half-size copy

    explicit QueueRecord(GraphicBufferMapper& mapper) : mMapper(mapper) {}
    ~QueueRecord() {
        for (auto& handle : mHandles)
            handle.reset();
    }

    QueueRecord(const QueueRecord&) = delete;
    QueueRecord& operator=(const QueueRecord&) = delete;

    VppBuffer& vppBuffer() { return mVppBuffer; }

    // Sets `to` to a duplicate of the buffer's descriptor and `allocLen` to its allocation size in
    // bytes. NoDescriptor, with an error message: the process has none left.
    Shared share(const sp<GraphicBuffer>& buffer,
                 ::aidl::android::hardware::common::NativeHandle* to, uint32_t* allocLen);

    // The same for one more metabuffer of this name, which must exist as entry `index`.
    Shared shareMeta(size_t index, const char* name, const sp<GraphicBuffer>& buffer);

    uint32_t allocationSize(const sp<GraphicBuffer>& buffer) const;

  private:
    struct HandleDeleter {
        void operator()(native_handle_t* handle) const { releaseNativeHandle(handle, false); }
    };
    GraphicBufferMapper& mMapper;
    VppBuffer mVppBuffer;
    std::array<std::unique_ptr<native_handle_t, HandleDeleter>, 1 + kMaxMetaBuffers> mHandles;
    size_t mHandleCount = 0;
};

}  // namespace android
