// Messages of the component. Private to src/.
//
// Messages about a session begin with its name and address, which the macros put in front. INFO,
// DEBUG and WARN messages are diagnostics: VPP_LOGI, VPP_LOGD and VPP_LOGW test the gate before any
// argument is evaluated, so that a closed gate costs one test. Errors are always printed.
#pragma once

#include <android/log.h>

#include <cstdint>

#define VPP_LOG_TAG "VppComponent"
#define VPP_PREFIX "[%s](%p) "
#define VPP_PREFIX_ARGS mLogName.load(), static_cast<const void*>(this)

namespace android {

// Bits 0 and 5 together open the gate; no other bit counts.
constexpr uint32_t kLogGate = 0x21;
constexpr bool logGateOpen(uint32_t flags) {
    return (flags & kLogGate) == kLogGate;
}

}  // namespace android

// In members of VppComponent: gated, with the prefix.
#define VPP_LOG_GATED(priority, format, ...)                                   \
    do {                                                                       \
        if (::android::logGateOpen(mLogFlags)) {                               \
            __android_log_print(priority, VPP_LOG_TAG, format, ##__VA_ARGS__); \
        }                                                                      \
    } while (false)
#define VPP_LOGI(format, ...) \
    VPP_LOG_GATED(ANDROID_LOG_INFO, VPP_PREFIX format, VPP_PREFIX_ARGS, ##__VA_ARGS__)
#define VPP_LOGD(format, ...) \
    VPP_LOG_GATED(ANDROID_LOG_DEBUG, VPP_PREFIX format, VPP_PREFIX_ARGS, ##__VA_ARGS__)
#define VPP_LOGW(format, ...) \
    VPP_LOG_GATED(ANDROID_LOG_WARN, VPP_PREFIX format, VPP_PREFIX_ARGS, ##__VA_ARGS__)

// Always printed; VPP_LOGE with the prefix, VPP_LOGE_BARE without.
#define VPP_LOGE_BARE(format, ...) \
    __android_log_print(ANDROID_LOG_ERROR, VPP_LOG_TAG, format, ##__VA_ARGS__)
#define VPP_LOGE(format, ...) VPP_LOGE_BARE(VPP_PREFIX format, VPP_PREFIX_ARGS, ##__VA_ARGS__)
