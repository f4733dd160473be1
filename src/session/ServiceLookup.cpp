// SPDX-License-Identifier: Apache-2.0
#include "session/ServiceLookup.h"

#include <android-base/thread_annotations.h>
#include <android/binder_manager.h>
#include <android/binder_process.h>

#include <chrono>
#include <exception>
#include <mutex>
#include <set>
#include <thread>

namespace android {
namespace {

using ::aidl::vendor::vuq::hardware::vpp::IVppService;

constexpr uint32_t kRetries = 35;  // after the first attempt
constexpr auto kRetryPause = std::chrono::microseconds(40000);

// The instances that a thread of this process waits for: one thread for each, however often
// enable() fails. Never destroyed, as those threads may outlive everything.
class WaitedFor {
  public:
    static WaitedFor& instance() {
        static auto* waited = new WaitedFor;
        return *waited;
    }
    // False: somebody waits for it already.
    bool add(const std::string& name) EXCLUDES(mLock) {
        const std::lock_guard<std::mutex> lock(mLock);
        return mNames.insert(name).second;
    }
    void remove(const std::string& name) EXCLUDES(mLock) {
        const std::lock_guard<std::mutex> lock(mLock);
        mNames.erase(name);
    }

  private:
    std::mutex mLock;
    std::set<std::string> mNames GUARDED_BY(mLock);
};

// The thread runs detached and touches no component: it may outlive the one that started it.
void startWaiting(const std::string& instance, void (*waitForService)(std::string),
                  const SessionLog& mLog) {
    WaitedFor& waited = WaitedFor::instance();
    if (!waited.add(instance)) return;
    try {
        std::thread([&waited, instance, waitForService] {
            waitForService(instance);
            waited.remove(instance);
        }).detach();
    } catch (const std::exception& error) {
        // Without it a service that starts on demand is not asked to; one that runs is still found.
        waited.remove(instance);
        VPP_LOGE("cannot start waitForServiceThread: %s", error.what());
    }
}

// Null when the service is not registered at this moment.
::ndk::SpAIBinder lookUp(const std::string& instance) {
    return ::ndk::SpAIBinder(AServiceManager_checkService(instance.c_str()));
}

}  // namespace

// Polls, because the thread that blocks until the service comes cannot be given up: it waits on,
// for the next enable(). Binder threads are started only when there is something for them to
// receive.
std::shared_ptr<IVppService> findVppService(const SessionLog& mLog,
                                            void (*waitForService)(std::string)) {
    const std::string instance = std::string(IVppService::descriptor) + "/default";
    std::shared_ptr<IVppService> service = IVppService::fromBinder(lookUp(instance));
    if (service != nullptr) {
        VPP_LOGI("acquired vppservice at first attempt");
        ABinderProcess_startThreadPool();
        return service;
    }
    VPP_LOGI("Cannot acquire vppService at first attempt !!! Starting waitForServiceThread");
    startWaiting(instance, waitForService, mLog);
    for (uint32_t n = 0; n < kRetries; ++n) {
        const ::ndk::SpAIBinder binder = lookUp(instance);
        if (binder.get() != nullptr) {
            VPP_LOGI("successfully get interface: %s", instance.c_str());
            service = IVppService::fromBinder(binder);
        } else {
            VPP_LOGI("sleep to get interface. Attempt (1 + %u)", n + 1);
            std::this_thread::sleep_for(kRetryPause);
        }
        if (service != nullptr) {
            VPP_LOGI("acquired vppservice after (1 + %u) attempts", n);
            ABinderProcess_startThreadPool();
            return service;
        }
    }
    VPP_LOGE("Couldn't acquire vppService after (1 + %u) attempts!!!", kRetries);
    return nullptr;
}

void blockUntilRegistered(const std::string& instance) {
    const ::ndk::SpAIBinder released(AServiceManager_waitForService(instance.c_str()));
}

}  // namespace android
