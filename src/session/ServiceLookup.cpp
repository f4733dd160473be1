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

constexpr uint32_t kRetries = 35;  // retries after the first attempt
constexpr auto kRetryPause = std::chrono::microseconds(40000);

// The service instances that a thread of this process waits for. There is at most one such thread
// for each instance, however often enable() fails. The object is never destroyed, because those
// threads may outlive every other object.
class WaitedFor {
  public:
    static WaitedFor& instance() {
        static auto* waited = new WaitedFor;
        return *waited;
    }
    // Returns false if a thread waits for the instance already.
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

// The thread is detached and uses no component, because it may outlive the component that started
// it.
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
        // Without the thread the service manager is not asked to start a service on demand; a
        // running service is still found.
        waited.remove(instance);
        VPP_LOGE("cannot start waitForServiceThread: %s", error.what());
    }
}

// Returns null if the service is not registered at this moment.
::ndk::SpAIBinder lookUp(const std::string& instance) {
    return ::ndk::SpAIBinder(AServiceManager_checkService(instance.c_str()));
}

}  // namespace

// Polls, because a blocking wait for the service could not be cancelled when the time is up. The
// waiting thread keeps waiting, which helps the next enable(). Binder threads are started only once
// a service has been found, because nothing can call back before that.
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
