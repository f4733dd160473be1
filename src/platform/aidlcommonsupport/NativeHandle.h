// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <aidl/android/hardware/common/NativeHandle.h>
#include <cutils/native_handle.h>

namespace android {

// Takes the descriptors of `handle` over without duplicating them and copies its integers. The
// structure itself stays with the caller, who deletes it with native_handle_delete().
aidl::android::hardware::common::NativeHandle makeToAidl(const native_handle_t* handle);

}  // namespace android
