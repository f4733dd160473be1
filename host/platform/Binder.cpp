#include <android/binder_auto_utils.h>
#include <android/binder_interface_utils.h>
#include <android/binder_manager.h>
#include <fcntl.h>
#include <host/platform/ResourceCounters.h>
#include <host/platform/ServiceRegistry.h>
#include <unistd.h>

#include <atomic>
#include <condition_variable>
#include <map>
#include <mutex>

using qoz::host::resourceCounters;

// A binder of this process: the object, and how many references to the binder are held.
struct AIBinder {
    explicit AIBinder(std::shared_ptr<ndk::ICInterface> implementation)
        : object(std::move(implementation)) {}

    std::atomic<int32_t> strong{1};
    const std::shared_ptr<ndk::ICInterface> object;
};

AIBinder* AIBinder_fromLocalInterface(const std::shared_ptr<ndk::ICInterface>& object) {
    resourceCounters().bindersLive.fetch_add(1, std::memory_order_relaxed);
    return new AIBinder(object);
}

void AIBinder_incStrong(AIBinder* binder) {
    binder->strong.fetch_add(1, std::memory_order_relaxed);
    resourceCounters().bindersLive.fetch_add(1, std::memory_order_relaxed);
}

void AIBinder_decStrong(AIBinder* binder) {
    resourceCounters().bindersLive.fetch_sub(1, std::memory_order_relaxed);
    if (binder->strong.fetch_sub(1, std::memory_order_acq_rel) == 1) delete binder;
}

namespace ndk {

binder_status_t ICInterface::dump(int, const char**, uint32_t) {
    return STATUS_OK;
}

binder_status_t ICInterface::handleShellCommand(int, int, int, const char**, uint32_t) {
    return STATUS_UNKNOWN_TRANSACTION;
}

std::shared_ptr<ICInterface> ICInterface::asInterface(AIBinder* binder) {
    return binder == nullptr ? nullptr : binder->object;
}

void ScopedFileDescriptor::set(int fd) {
    const int old = std::exchange(mFd, fd);
    if (old >= 0) close(old);
}

ScopedFileDescriptor ScopedFileDescriptor::dup() const {
    return ScopedFileDescriptor(fcntl(mFd, F_DUPFD_CLOEXEC, 0));
}

}  // namespace ndk

namespace qoz::host {
namespace {

struct Registry {
    std::mutex lock;
    std::condition_variable registered;
    std::map<std::string, ndk::SpAIBinder> services;
};

// Never destroyed: a detached thread may wait on it to the very end of the process.
Registry& registry() {
    static auto* instance = new Registry;
    return *instance;
}

// With the registry's lock held. The caller owns the reference.
AIBinder* find(Registry& all, const std::string& instance) {
    const auto found = all.services.find(instance);
    if (found == all.services.end()) return nullptr;
    AIBinder_incStrong(found->second.get());
    return found->second.get();
}

}  // namespace

void addService(const std::string& instance, const ndk::SpAIBinder& binder) {
    Registry& all = registry();
    const std::lock_guard lock(all.lock);
    all.services[instance] = binder;
    all.registered.notify_all();
}

void removeService(const std::string& instance) {
    ndk::SpAIBinder removed;  // ends after the lock: the service's own end may take a while
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
    AIBinder* found = nullptr;
    all.registered.wait(lock, [&] { return (found = qoz::host::find(all, instance)) != nullptr; });
    return found;
}
