// SPDX-License-Identifier: Apache-2.0
#include "host/vppd/Bus.h"

#include <android/log.h>
#include <pthread.h>
#include <sys/socket.h>

#include <utility>

#include "host/vppd/RemoteCall.h"

#if defined(__SANITIZE_THREAD__)
// False reports about libraries that are not instrumented. The reading thread shares a pending call
// with its caller, and passes it an exception. Atomic reference counts in those libraries order the
// destruction of both, but the sanitizer cannot see them.
extern "C" const char* __tsan_default_suppressions() {
    return "race:sdbus::PendingAsyncCall\nrace:sdbus::internal::Proxy::sdbus_async_reply_handler\n"
           "race:std::runtime_error::~runtime_error\n";
}
#endif

namespace qoz::host::vppd {
namespace {

constexpr char kDriver[] = "org.freedesktop.DBus";
constexpr char kDriverPath[] = "/org/freedesktop/DBus";

std::unique_ptr<sdbus::IConnection> connect(const std::string& address) {
    return address.empty() ? sdbus::createSessionBusConnection()
                           : sdbus::createSessionBusConnectionWithAddress(address);
}

}  // namespace

Bus::Bus(const std::string& address) : mConnection(connect(address)) {
    mName = mConnection->getUniqueName();
    mDriver = sdbus::createProxy(*mConnection, kDriver, kDriverPath);
    mDriver->finishRegistration();
}

Bus::~Bus() {
    stopNotifications();
    mConnection->leaveEventLoop();
    if (mReader.joinable()) mReader.join();
}

void Bus::watchOwners(const std::string& onlyName, OwnerChange change) {
    mOwners = sdbus::createProxy(*mConnection, kDriver, kDriverPath);
    mOwners->uponSignal("NameOwnerChanged")
        .onInterface(kDriver)
        .call([onlyName, change = std::move(change)](
                  const std::string& name, const std::string& before, const std::string& after) {
            if (onlyName.empty() || name == onlyName) change(name, before, after);
        });
    mOwners->finishRegistration();
}

void Bus::start(std::function<void()> onGone) {
    {
        const std::lock_guard lock(mLock);
        mOnGone = std::move(onGone);
    }
    mReader = std::thread([this] { read(); });
    pthread_setname_np(mReader.native_handle(), "bus");
}

// The body of the reading thread. Returns when the destructor asks it to, or when the connection
// has ended.
void Bus::read() {
    try {
        mConnection->enterEventLoop();
        return;  // leaveEventLoop() has been called
    } catch (const sdbus::Error& error) {
        __android_log_print(ANDROID_LOG_WARN, "vppd", "the connection to the bus has ended: %s",
                            error.what());
    }
    mAlive.store(false, std::memory_order_release);
    hangUp();
    const std::lock_guard lock(mLock);
    if (mOnGone) mOnGone();
}

// Shuts the connection down, so that the bus tells the other connections that this one has left.
// This is necessary after a message that could not be received, because the connection is still
// open then. If the bus has ended, the connection no longer has a descriptor.
void Bus::hangUp() {
    try {
        shutdown(mConnection->getEventLoopPollData().fd, SHUT_RDWR);
    } catch (const sdbus::Error&) {
        return;  // there is nothing to shut down
    }
}

void Bus::stopNotifications() {
    mOwners.reset();
    const std::lock_guard lock(mLock);
    mOnGone = nullptr;
}

// Calls a method of the bus itself. Returns nullopt if the answer is an error or does not arrive by
// `end`.
template <typename Value, typename... Args>
std::optional<Value> Bus::askBus(const char* method, SteadyTime end, const Args&... args) {
    try {
        return callWithin<Value>(end, *mDriver, kDriver, method, args...);
    } catch (const sdbus::Error& error) {
        __android_log_print(ANDROID_LOG_DEBUG, "vppd", "%s: %s", method, error.what());
        return std::nullopt;
    }
}

void Bus::startService(const std::string& busName, SteadyTime end) {
    askBus<uint32_t>("StartServiceByName", end, busName, uint32_t{0});
}

bool Bus::takeName(const std::string& busName, SteadyTime end) {
    constexpr uint32_t kDoNotQueue = 4;  // a flag and a result of RequestName
    constexpr uint32_t kPrimaryOwner = 1;
    return askBus<uint32_t>("RequestName", end, busName, kDoNotQueue) == kPrimaryOwner;
}

std::optional<std::string> Bus::ownerOf(const std::string& busName, SteadyTime end) {
    return askBus<std::string>("GetNameOwner", end, busName);
}

std::optional<pid_t> Bus::pidOf(const std::string& busName, SteadyTime end) {
    const auto pid = askBus<uint32_t>("GetConnectionUnixProcessID", end, busName);
    if (!pid) return std::nullopt;
    return static_cast<pid_t>(*pid);
}

}  // namespace qoz::host::vppd
