// SPDX-License-Identifier: Apache-2.0
#include "pipeline/QueueRecord.h"

#include <aidlcommonsupport/NativeHandle.h>
#include <fcntl.h>

#include <cerrno>
#include <cstring>

#include "base/Log.h"
#include "vpp/RecordFields.h"

namespace android {

void releaseNativeHandle(const native_handle_t* handle, bool closeFds) {
    if (handle == nullptr) return;
    const int closed = closeFds ? native_handle_close(handle) : 0;
    if (closed != 0) {
        VPP_LOGE_BARE("ERROR : native_handle_close returned err = %u",
                      static_cast<unsigned>(closed));
        return;
    }
    const int deleted = native_handle_delete(const_cast<native_handle_t*>(handle));
    if (deleted != 0) {
        VPP_LOGE_BARE("ERROR : native_handle_delete returned err = %u",
                      static_cast<unsigned>(deleted));
    }
}

// Returns the allocation size in bytes. The record's field has 32 bits, and no graphic buffer needs
// more.
uint32_t QueueRecord::allocationSize(const sp<GraphicBuffer>& buffer) const {
    uint64_t bytes = 0;
    mMapper.getAllocationSize(buffer->getNativeBuffer()->handle, &bytes);
    return static_cast<uint32_t>(bytes);
}

// The handle owns the duplicated descriptor until makeToAidl() has moved it into the record. After
// that the handle is deleted without closing any descriptor.
QueueRecord::Shared QueueRecord::share(const sp<GraphicBuffer>& buffer, NativeHandle* to,
                                       uint32_t* allocLen) {
    auto& handle = mHandles[mHandleCount];
    handle.reset(native_handle_create(1, 0));
    if (handle == nullptr) return Shared::NoHandle;
    *allocLen = allocationSize(buffer);
    handle->data[0] = fcntl(buffer->getNativeBuffer()->handle->data[0], F_DUPFD_CLOEXEC, 0);
    if (handle->data[0] < 0) {
        VPP_LOGE_BARE("cannot duplicate the descriptor of a buffer: %s", strerror(errno));
        return Shared::NoDescriptor;
    }
    try {
        *to = makeToAidl(handle.get());
    } catch (...) {
        native_handle_close(handle.get());  // the handle still owns the descriptor
        throw;
    }
    ++mHandleCount;
    return Shared::Ok;
}

QueueRecord::Shared QueueRecord::shareMeta(size_t index, const char* name,
                                           const sp<GraphicBuffer>& buffer) {
    auto& meta = mVppBuffer.metaBuffers[index];
    uint32_t allocLen = 0;
    const Shared result = share(buffer, &meta.metaHandle, &allocLen);
    setUnsigned(meta.metaAllocLen, allocLen);
    if (result == Shared::Ok) meta.metaName = name;
    return result;
}

}  // namespace android
