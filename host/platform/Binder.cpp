// SPDX-License-Identifier: Apache-2.0
// Binders and the service manager of one process. A binder here is a reference-counted pointer to
// an object of the same process, and the service manager is a map from names to binders.
#include <android-base/thread_annotations.h>
#include <android/binder_auto_utils.h>
#include <android/binder_interface_utils.h>
#include <android/binder_manager.h>
#include <host/platform/LocalBinder.h>
#include <host/platform/ResourceCounters.h>
#include <host/platform/ServiceRegistry.h>
#include <unistd.h>

#include <condition_variable>
#include <map>
#include <mutex>
#include <string>
#include <utility>

using qoz::host::resourceCounters;

namespace {

// The reference count of one binder. The binder and its weak references own it together, because
// weak references outlive the binder. The lock makes promotion atomic: a weak reference must not
// raise the count again after the last strong reference has brought it to 0.
struct References {
    std::mutex lock;
    int32_t strong GUARDED_BY(lock) = 1;
    AIBinder* binder = nullptr;  // set before the binder is published; valid while strong > 0
};

}  // namespace

// A binder keeps its object alive for as long as there are strong references to the binder. The
// descriptor is the name of the object's interface.
struct AIBinder {
    const std::shared_ptr<ndk::SharedRefBase> object;
    const std::string descriptor;
    const std::shared_ptr<References> references;
};

struct AIBinder_Weak {
    const std::shared_ptr<References> references;
};

void AIBinder_incStrong(AIBinder* binder) {
    resourceCounters().bindersLive.fetch_add(1, std::memory_order_relaxed);
    const std::lock_guard lock(binder->references->lock);
    ++binder->references->strong;
}

void AIBinder_decStrong(AIBinder* binder) {
    resourceCounters().bindersLive.fetch_sub(1, std::memory_order_relaxed);
    {
        const std::lock_guard lock(binder->references->lock);
        if (--binder->references->strong > 0) return;
    }
    // Without the lock, because this may destroy `references`, and because the object's destructor
    // may use its binder.
    delete binder;
}

AIBinder_Weak* AIBinder_Weak_new(AIBinder* binder) {
    return new AIBinder_Weak{binder->references};
}

void AIBinder_Weak_delete(AIBinder_Weak* weakBinder) {
    delete weakBinder;
}

AIBinder* AIBinder_Weak_promote(AIBinder_Weak* weakBinder) {
    References& references = *weakBinder->references;
    const std::lock_guard lock(references.lock);
    if (references.strong == 0) return nullptr;
    ++references.strong;
    resourceCounters().bindersLive.fetch_add(1, std::memory_order_relaxed);
    return references.binder;
}

namespace ndk {

binder_status_t ICInterface::dump(int, const char**, uint32_t) {
    return STATUS_OK;
}

binder_status_t ICInterface::handleShellCommand(int, int, int, const char**, uint32_t) {
    return STATUS_UNKNOWN_TRANSACTION;
}

void ScopedFileDescriptor::set(int fd) {
    const int old = std::exchange(mFd, fd);
    if (old >= 0) close(old);
}

}  // namespace ndk

namespace qoz::host {
namespace {

// The registered services by name. `registered` is notified when a service is added.
struct Registry {
    std::mutex lock;
    std::condition_variable registered;
    std::map<std::string, ndk::SpAIBinder> services GUARDED_BY(lock);
};

// Never destroyed, because a detached thread may still wait for a service when the process exits.
Registry& registry() {
    static auto* instance = new Registry;
    return *instance;
}

// Returns a strong reference, which the caller owns, or null if no such service is registered.
AIBinder* find(Registry& all, const std::string& instance) REQUIRES(all.lock) {
    const auto found = all.services.find(instance);
    if (found == all.services.end()) return nullptr;
    AIBinder_incStrong(found->second.get());
    return found->second.get();
}

}  // namespace

ndk::SpAIBinder newLocalBinder(std::shared_ptr<ndk::SharedRefBase> object, const char* descriptor) {
    auto references = std::make_shared<References>();
    auto* binder = new AIBinder{std::move(object), descriptor, references};
    references->binder = binder;
    resourceCounters().bindersLive.fetch_add(1, std::memory_order_relaxed);
    return ndk::SpAIBinder(binder);
}

std::shared_ptr<ndk::SharedRefBase> objectOf(const AIBinder* binder) {
    return binder != nullptr ? binder->object : nullptr;
}

std::shared_ptr<ndk::SharedRefBase> localObject(const ndk::SpAIBinder& binder,
                                                const char* descriptor) {
    const bool matches = binder.get() != nullptr && binder.get()->descriptor == descriptor;
    return matches ? objectOf(binder.get()) : nullptr;
}

// In both functions the previous service is declared before the lock, so that it is released after
// the lock: this may destroy the service, which can take a while.
void addService(const std::string& instance, const ndk::SpAIBinder& binder) {
    ndk::SpAIBinder replaced;
    Registry& all = registry();
    const std::lock_guard lock(all.lock);
    replaced = std::exchange(all.services[instance], binder);
    all.registered.notify_all();
}

void removeService(const std::string& instance) {
    ndk::SpAIBinder removed;
    Registry& all = registry();
    const std::lock_guard lock(all.lock);
    const auto found = all.services.find(instance);
    if (found == all.services.end()) return;
    removed = std::move(found->second);
    all.services.erase(found);
}

}  // namespace qoz::host

AIBinder* AServiceManager_checkService(const char* instance) {
    auto& all = qoz::host::registry();
    const std::lock_guard lock(all.lock);
    return qoz::host::find(all, instance);
}

AIBinder* AServiceManager_waitForService(const char* instance) {
    auto& all = qoz::host::registry();
    std::unique_lock lock(all.lock);
    const android::base::ScopedLockAssertion held(all.lock);
    AIBinder* found = nullptr;
    all.registered.wait(lock, [&]() REQUIRES(all.lock) {
        return (found = qoz::host::find(all, instance)) != nullptr;
    });
    return found;
}
