#include "host/vppd/Bus.h"

#include "host/vppd/Names.h"

#include <android/log.h>
#include <pthread.h>

#include <utility>

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
    mConnection->setMethodCallTimeout(kCallLimit);
    mName = mConnection->getUniqueName();
    mDriver = sdbus::createProxy(*mConnection, kDriver, kDriverPath);
    mDriver->finishRegistration();
}

Bus::~Bus() {
    stopTelling();
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
    mOnGone = std::move(onGone);
    mReader = std::thread([this] { read(); });
    pthread_setname_np(mReader.native_handle(), "bus");
}

void Bus::read() {
    try {
        mConnection->enterEventLoop();
        return;  // asked to
    } catch (const sdbus::Error& error) {
        __android_log_print(ANDROID_LOG_WARN, "vppd", "the bus is gone: %s", error.what());
    }
    const std::lock_guard lock(mLock);
    if (mOnGone) mOnGone();
}

void Bus::stopTelling() {
    mOwners.reset();
    const std::lock_guard lock(mLock);
    mOnGone = nullptr;
}

void Bus::startService(const std::string& busName) {
    try {
        uint32_t started = 0;
        mDriver->callMethod("StartServiceByName")
            .onInterface(kDriver)
            .withTimeout(kStartLimit)
            .withArguments(busName, uint32_t{0})
            .storeResultsTo(started);
    } catch (const sdbus::Error& error) {
        __android_log_print(ANDROID_LOG_WARN, "vppd", "%s: %s", busName.c_str(), error.what());
    }
}

std::optional<std::string> Bus::ownerOf(const std::string& busName) {
    try {
        std::string owner;
        mDriver->callMethod("GetNameOwner")
            .onInterface(kDriver)
            .withArguments(busName)
            .storeResultsTo(owner);
        return owner;
    } catch (const sdbus::Error&) {
        return std::nullopt;  // nobody has the name
    }
}

std::optional<pid_t> Bus::pidOf(const std::string& busName) {
    try {
        uint32_t pid = 0;
        mDriver->callMethod("GetConnectionUnixProcessID")
            .onInterface(kDriver)
            .withArguments(busName)
            .storeResultsTo(pid);
        return static_cast<pid_t>(pid);
    } catch (const sdbus::Error&) {
        return std::nullopt;  // nobody has the name
    }
}

}  // namespace qoz::host::vppd
