// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <aidl/android/hardware/common/NativeHandle.h>
#include <cutils/native_handle.h>

namespace android {

// Takes ownership of the descriptors in `handle`, without duplicating them, and copies its
// integers. The caller keeps the structure and must free it with native_handle_delete().
aidl::android::hardware::common::NativeHandle makeToAidl(const native_handle_t* handle);

}  // namespace android
