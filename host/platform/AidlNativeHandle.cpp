// SPDX-License-Identifier: Apache-2.0
#include <aidlcommonsupport/NativeHandle.h>

#include <cstddef>

namespace android {

aidl::android::hardware::common::NativeHandle makeToAidl(const native_handle_t* handle) {
    aidl::android::hardware::common::NativeHandle result;
    // All memory is allocated first. The result closes the descriptors that it contains, so an
    // exception after the first emplace_back() would close descriptors that the caller still owns.
    result.fds.reserve(static_cast<size_t>(handle->numFds));
    result.ints.assign(handle->data + handle->numFds,
                       handle->data + handle->numFds + handle->numInts);
    for (int i = 0; i < handle->numFds; ++i)
        result.fds.emplace_back(handle->data[i]);
    return result;
}

}  // namespace android
