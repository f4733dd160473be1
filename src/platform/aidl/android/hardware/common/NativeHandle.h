// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <android/binder_auto_utils.h>

#include <cstdint>
#include <vector>

namespace aidl::android::hardware::common {

// File descriptors and integers in a binder call. Owns the descriptors.
class NativeHandle {
  public:
    std::vector<::ndk::ScopedFileDescriptor> fds;
    std::vector<int32_t> ints;
};

}  // namespace aidl::android::hardware::common
