#include <android/binder_manager.h>
#include <android/binder_process.h>
#include <qoz/VppComponent.h>

#include <exception>

#include "session/Log.h"

namespace android {
namespace {

constexpr uint32_t kRetries = 35;
constexpr auto kRetryPause = std::chrono::microseconds(40000);

ndk::SpAIBinder lookUp(const std::string& instance) {
    return ndk::SpAIBinder(AServiceManager_checkService(instance.c_str()));
}

}  // namespace

bool VppComponent::acquireVppService() {
    const std::string instance = std::string(IVppService::descriptor) + "/default";
    mVppService = IVppService::fromBinder(lookUp(instance));
    if (mVppService != nullptr) {
        VPP_LOGI("acquired vppservice at first attempt");
        ABinderProcess_startThreadPool();
        return true;
    }
    VPP_LOGI("Cannot acquire vppService at first attempt !!! Starting waitForServiceThread");
    try {
        std::thread(waitForService, instance).detach();
    } catch (const std::exception& error) {
        // Without it a service that starts on demand is not asked to; one that runs is still found.
        VPP_LOGE("cannot start waitForServiceThread: %s", error.what());
    }
    for (uint32_t n = 0; n < kRetries; ++n) {
        const ndk::SpAIBinder binder = lookUp(instance);
        if (binder.get() != nullptr) {
            VPP_LOGI("successfully get interface: %s", instance.c_str());
            mVppService = IVppService::fromBinder(binder);
        } else {
            VPP_LOGI("sleep to get interface. Attempt (1 + %u)", n + 1);
            std::this_thread::sleep_for(kRetryPause);
        }
        if (mVppService != nullptr) {
            VPP_LOGI("acquired vppservice after (1 + %u) attempts", n);
            ABinderProcess_startThreadPool();
            return true;
        }
    }
    VPP_LOGE("Couldn't acquire vppService after (1 + %u) attempts!!!", kRetries);
    return false;
}

// Blocks until the service is registered, which also has the service manager start one that starts
// on demand. Runs detached and touches no component: it may outlive the one that started it.
// NOLINTNEXTLINE(performance-unnecessary-value-param): the thread keeps its own copy
void VppComponent::waitForService(std::string instance) {
    const ndk::SpAIBinder released(AServiceManager_waitForService(instance.c_str()));
}

}  // namespace android
