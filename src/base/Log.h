// SPDX-License-Identifier: Apache-2.0
// Log messages of the component. Private to src/.
//
// Messages about a session begin with its name and the component's address, which the macros
// insert. The macros must be used where `mLog` names the component's SessionLog. INFO, DEBUG and
// WARN messages are diagnostics: VPP_LOGI, VPP_LOGD and VPP_LOGW test the gate before they evaluate
// any argument, so a closed gate costs one test. Errors are always printed.
#pragma once

#include <android-base/thread_annotations.h>
#include <android/log.h>

#include <cstdint>
#include <memory>
#include <mutex>
#include <string>
#include <utility>

#define VPP_LOG_TAG "VppComponent"
#define VPP_PREFIX "[%s](%p) "
#define VPP_PREFIX_ARGS mLog.name()->c_str(), mLog.component()

namespace android {

// The prefix of one component's messages, and whether its diagnostics are printed.
class SessionLog {
  public:
    SessionLog(const uint32_t& flags, const std::string& name, const void* component)
        : mFlags(flags), mComponent(component), mName(std::make_shared<const std::string>(name)) {}

    SessionLog(const SessionLog&) = delete;
    SessionLog& operator=(const SessionLog&) = delete;

    // Returns whether bits 0 and 5 are both set; no other bit matters.
    bool isOpen() const { return (mFlags & kGate) == kGate; }

    // The caller shares ownership of the name, because a callback of the previous session may still
    // be printing it while enable() replaces it. The lock is a leaf.
    std::shared_ptr<const std::string> name() const EXCLUDES(mLock) {
        const std::lock_guard<std::mutex> lock(mLock);
        return mName;
    }
    void rename(const std::string& name) EXCLUDES(mLock) {
        auto renamed = std::make_shared<const std::string>(name);
        const std::lock_guard<std::mutex> lock(mLock);
        mName = std::move(renamed);
    }

    const void* component() const { return mComponent; }

  private:
    static constexpr uint32_t kGate = 0x21;

    const uint32_t& mFlags;  // fixed at construction of the component
    const void* const mComponent;
    mutable std::mutex mLock;
    std::shared_ptr<const std::string> mName GUARDED_BY(mLock);
};

}  // namespace android

// Printed only if the gate is open; with the prefix.
#define VPP_LOG_GATED(priority, format, ...)                                                  \
    do {                                                                                      \
        if (mLog.isOpen()) __android_log_print(priority, VPP_LOG_TAG, format, ##__VA_ARGS__); \
    } while (false)
#define VPP_LOGI(format, ...) \
    VPP_LOG_GATED(ANDROID_LOG_INFO, VPP_PREFIX format, VPP_PREFIX_ARGS, ##__VA_ARGS__)
#define VPP_LOGD(format, ...) \
    VPP_LOG_GATED(ANDROID_LOG_DEBUG, VPP_PREFIX format, VPP_PREFIX_ARGS, ##__VA_ARGS__)
#define VPP_LOGW(format, ...) \
    VPP_LOG_GATED(ANDROID_LOG_WARN, VPP_PREFIX format, VPP_PREFIX_ARGS, ##__VA_ARGS__)

// Printed only if the gate is open; without the prefix.
#define VPP_LOGD_BARE(format, ...) VPP_LOG_GATED(ANDROID_LOG_DEBUG, format, ##__VA_ARGS__)

// Always printed. VPP_LOGE adds the prefix, VPP_LOGE_BARE does not.
#define VPP_LOGE_BARE(format, ...) \
    __android_log_print(ANDROID_LOG_ERROR, VPP_LOG_TAG, format, ##__VA_ARGS__)
#define VPP_LOGE(format, ...) VPP_LOGE_BARE(VPP_PREFIX format, VPP_PREFIX_ARGS, ##__VA_ARGS__)
