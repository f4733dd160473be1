// SPDX-License-Identifier: Apache-2.0
#include "host/vppd/RemoteService.h"

#include <aidl/vendor/vuq/hardware/vpp/BnVppService.h>
#include <android/log.h>
#include <host/platform/BinderDeath.h>
#include <host/platform/ServiceRegistry.h>

#include <chrono>
#include <future>
#include <mutex>
#include <optional>
#include <set>
#include <string>
#include <utility>
#include <vector>

#include "host/vppd/Names.h"
#include "host/vppd/RemoteCall.h"
#include "host/vppd/RemoteSession.h"
#include "host/vppservice/SerialExecutor.h"

namespace qoz::host {
namespace vppd {
namespace {

SteadyTime callEnd() {
    return std::chrono::steady_clock::now() + kCallLimit;
}

ndk::ScopedAStatus deadObject() {
    return ndk::ScopedAStatus::fromStatus(STATUS_DEAD_OBJECT);
}

// Calls a method of the service in the process with the unique name `owner`. If that fails, logs
// the error and returns nullopt.
template <typename Value, typename... Args>
std::optional<Value> ask(Bus& bus, const std::string& owner, SteadyTime end, const char* method,
                         const Args&... args) {
    try {
        const auto proxy = sdbus::createProxy(bus.connection(), owner, kServicePath);
        return callWithin<Value>(end, *proxy, kServiceInterface, method, args...);
    } catch (const sdbus::Error& error) {
        __android_log_print(ANDROID_LOG_WARN, "vppd", "%s failed: %s", method, error.what());
        return std::nullopt;
    }
}

// The registered service, which creates sessions and reacts to the deaths of the processes behind
// them. The thread that reads the bus notices a death and marks the sessions as dead. Notifying the
// clients and releasing their objects may take a while and runs on the thread of mReleases.
class RemoteFactory : public vpp::BnVppService {
  public:
    // Throws sdbus::Error if there is no connection to the bus.
    explicit RemoteFactory(std::string address) : mAddress(std::move(address)) {
        const std::lock_guard connecting(mConnecting);
        connect();
    }

    ndk::ScopedAStatus getNewVppSession(int32_t flags, std::shared_ptr<vpp::IVpp>* result) override;
    ndk::ScopedAStatus getSessionCount(int32_t* result) override;
    uint64_t faultsFired();

    void end() EXCLUDES(mLock);
    uint64_t deaths() const EXCLUDES(mLock) {
        const std::lock_guard lock(mLock);
        return mDeaths;
    }

  private:
    using Sessions = std::vector<std::shared_ptr<RemoteSession>>;

    void connect() REQUIRES(mConnecting) EXCLUDES(mLock);
    std::shared_ptr<Bus> connection() EXCLUDES(mConnecting, mLock);
    template <typename Value>
    std::optional<Value> askRunning(const char* method) EXCLUDES(mLock);
    void adopt(const std::shared_ptr<RemoteSession>& session) EXCLUDES(mLock);
    void onOwnerGone(const std::string& owner) EXCLUDES(mLock);
    void onConnectionLost(const Bus* bus) EXCLUDES(mLock);
    Sessions liveSessions() REQUIRES(mLock);  // the sessions that a client still holds
    void release(Sessions all, std::shared_ptr<Bus> lost);

    const std::string mAddress;
    std::mutex mConnecting;  // held while a connection is opened; taken before mLock
    mutable std::mutex mLock;
    std::shared_ptr<Bus> mBus GUARDED_BY(mLock);  // null once it has been lost
    bool mEnded GUARDED_BY(mLock) = false;
    uint64_t mDeaths GUARDED_BY(mLock) = 0;
    // The unique names of processes that have died. The bus never assigns a unique name again.
    std::set<std::string> mDeadOwners GUARDED_BY(mLock);
    std::vector<std::weak_ptr<RemoteSession>> mSessions GUARDED_BY(mLock);

    vppservice::SerialExecutor mReleases;
};

// Opens a connection. It is created and started without mLock, because the thread that reads the
// bus takes mLock while it holds the locks of the bus.
void RemoteFactory::connect() {
    const auto bus = std::make_shared<Bus>(mAddress);
    bus->watchOwners(kBusName, [this](const auto&, const auto& before, const auto&) {
        if (!before.empty()) onOwnerGone(before);
    });
    {
        const std::lock_guard lock(mLock);
        if (mEnded) return;
        mBus = bus;
    }
    try {
        bus->start([this, raw = bus.get()] { onConnectionLost(raw); });
    } catch (...) {
        const std::lock_guard lock(mLock);
        mBus.reset();
        throw;
    }
}

// Returns the connection, after opening a new one if it has been lost. Returns null if that fails
// or if the service has ended.
std::shared_ptr<Bus> RemoteFactory::connection() {
    std::shared_ptr<Bus> lost;
    {
        const std::lock_guard lock(mLock);
        if (mBus != nullptr && !mBus->isAlive()) lost = mBus;
    }
    // The reading thread of the lost connection is about to make the same call.
    if (lost != nullptr) onConnectionLost(lost.get());
    const std::lock_guard connecting(mConnecting);
    {
        const std::lock_guard lock(mLock);
        if (mEnded || mBus != nullptr) return mEnded ? nullptr : mBus;
    }
    try {
        connect();
    } catch (const std::exception& error) {  // there is no bus, or no thread can be created
        __android_log_print(ANDROID_LOG_ERROR, "vppd", "no connection to the bus: %s",
                            error.what());
    }
    const std::lock_guard lock(mLock);
    return mBus;
}

ndk::ScopedAStatus RemoteFactory::getNewVppSession(int32_t flags,
                                                   std::shared_ptr<vpp::IVpp>* result) {
    const SteadyTime end = callEnd();
    const auto bus = connection();
    if (bus == nullptr || result == nullptr) return deadObject();
    bus->startService(kBusName, end);
    const auto owner = bus->ownerOf(kBusName, end);
    if (!owner) return deadObject();
    const auto path = ask<sdbus::ObjectPath>(*bus, *owner, end, "GetNewVppSession", flags);
    if (!path) return deadObject();
    std::shared_ptr<RemoteSession> session;
    if (*path != kNoSession) {
        session = make<RemoteSession>(bus, *owner, *path);
        adopt(session);
    }
    *result = std::move(session);
    return ndk::ScopedAStatus::ok();
}

// Asks the service's process for a value, but does not start the process.
template <typename Value>
std::optional<Value> RemoteFactory::askRunning(const char* method) {
    const SteadyTime end = callEnd();
    const auto bus = connection();
    const auto owner = bus == nullptr ? std::nullopt : bus->ownerOf(kBusName, end);
    return owner ? ask<Value>(*bus, *owner, end, method) : std::nullopt;
}

ndk::ScopedAStatus RemoteFactory::getSessionCount(int32_t* result) {
    const auto count = askRunning<int32_t>("GetSessionCount");
    if (!count || result == nullptr) return deadObject();
    *result = *count;
    return ndk::ScopedAStatus::ok();
}

uint64_t RemoteFactory::faultsFired() {
    return askRunning<uint64_t>("GetFaultsFired").value_or(0);
}

// Adds a new session to those that a death affects. If its process or connection has ended since
// the session was requested, the session is dead at once.
void RemoteFactory::adopt(const std::shared_ptr<RemoteSession>& session) {
    {
        const std::lock_guard lock(mLock);
        std::erase_if(mSessions, [](const auto& known) { return known.expired(); });
        mSessions.push_back(session);
        const bool lives =
            !mEnded && session->bus() == mBus.get() && !mDeadOwners.contains(session->owner());
        if (lives) return;
    }
    session->declareDead();
    announceDeath(*session);
}

RemoteFactory::Sessions RemoteFactory::liveSessions() {
    Sessions all;
    for (const auto& known : mSessions) {
        if (auto session = known.lock()) all.push_back(std::move(session));
    }
    return all;
}

void RemoteFactory::onOwnerGone(const std::string& owner) {
    Sessions all;
    {
        const std::lock_guard lock(mLock);
        ++mDeaths;
        mDeadOwners.insert(owner);
        all = liveSessions();
    }
    for (const auto& session : all) {
        if (session->owner() == owner) session->declareDead();
    }
    release(std::move(all), nullptr);
}

// Called by the reading thread, by a caller that notices the loss before it, and by end(). Takes
// effect once for each connection.
void RemoteFactory::onConnectionLost(const Bus* bus) {
    Sessions all;
    std::shared_ptr<Bus> lost;
    {
        const std::lock_guard lock(mLock);
        if (mBus.get() != bus || bus == nullptr) return;
        lost.swap(mBus);
        ++mDeaths;
        all = liveSessions();
    }
    for (const auto& session : all) {
        if (session->bus() == bus) session->declareDead();
    }
    release(std::move(all), std::move(lost));
}

// Announces the deaths of the dead sessions in `all` and then releases them; every client is
// notified before release() waits for one. The other sessions and the connection are passed along
// because the last reference to either must not be dropped on the thread that reads the bus.
void RemoteFactory::release(Sessions all, std::shared_ptr<Bus> lost) {
    mReleases.post([all = std::move(all), lost = std::move(lost)]() mutable {
        for (const auto& session : all) {
            if (session->isDead()) announceDeath(*session);
        }
        for (auto& session : all) {
            if (session->isDead()) session->release();
            session.reset();
        }
        lost.reset();
    });
}

// Ends the service as if its process had died, and waits until all sessions have been released.
void RemoteFactory::end() {
    std::shared_ptr<Bus> bus;
    {
        const std::lock_guard lock(mLock);
        mEnded = true;
        bus = mBus;
    }
    if (bus != nullptr) {
        bus->stopNotifications();
        onConnectionLost(bus.get());
    }
    const auto released = std::make_shared<std::promise<void>>();
    mReleases.post([released] { released->set_value(); });
    released->get_future().wait();
    mReleases.stop(kCallLimit);
}

}  // namespace
}  // namespace vppd

struct RemoteVppService::Impl {
    explicit Impl(const std::string& address)
        : factory(ndk::SharedRefBase::make<vppd::RemoteFactory>(address)) {
        addService(defaultInstance<vppd::vpp::IVppService>(), factory->asBinder());
    }
    ~Impl() {
        removeService(defaultInstance<vppd::vpp::IVppService>());
        factory->end();
    }

    Impl(const Impl&) = delete;
    Impl& operator=(const Impl&) = delete;

    // A session that a client still holds keeps the connection and its reading thread alive, for
    // calls that have not returned.
    const std::shared_ptr<vppd::RemoteFactory> factory;
};

RemoteVppService::RemoteVppService(const std::string& address)
    : mImpl(std::make_unique<Impl>(address)) {}

RemoteVppService::~RemoteVppService() = default;

uint64_t RemoteVppService::deaths() const {
    return mImpl->factory->deaths();
}

uint64_t RemoteVppService::faultsFired() const {
    return mImpl->factory->faultsFired();
}

}  // namespace qoz::host
