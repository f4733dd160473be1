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

// Asks the process that has the service's name now. None, with a message, when that fails.
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

// The factory, and what it knows of the deaths of the processes behind it. Deaths are noticed on
// the thread that reads the bus; what follows from one runs on the releases' own thread, because
// the client's objects go with it.
class RemoteFactory : public vpp::BnVppService {
  public:
    // Connects. Throws sdbus::Error when there is no bus.
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
    Sessions allHeld() REQUIRES(mLock);
    void release(Sessions all, std::shared_ptr<Bus> lost);

    const std::string mAddress;
    std::mutex mConnecting;  // one connection is made at a time; before mLock
    mutable std::mutex mLock;
    std::shared_ptr<Bus> mBus GUARDED_BY(mLock);  // null once it has been lost
    bool mEnded GUARDED_BY(mLock) = false;
    uint64_t mDeaths GUARDED_BY(mLock) = 0;
    std::set<std::string> mDeadOwners GUARDED_BY(mLock);  // unique names are never given again
    std::vector<std::weak_ptr<RemoteSession>> mSessions GUARDED_BY(mLock);

    vppservice::SerialExecutor mReleases;
};

// Without mLock: the thread that reads the bus takes it with the bus's own locks held.
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

// The one there is, or a new one in place of one that has been lost; null when there is none.
std::shared_ptr<Bus> RemoteFactory::connection() {
    std::shared_ptr<Bus> lost;
    {
        const std::lock_guard lock(mLock);
        if (mBus != nullptr && !mBus->isAlive()) lost = mBus;
    }
    if (lost != nullptr) onConnectionLost(lost.get());  // its reading thread is about to say so
    const std::lock_guard connecting(mConnecting);
    {
        const std::lock_guard lock(mLock);
        if (mEnded || mBus != nullptr) return mEnded ? nullptr : mBus;
    }
    try {
        connect();
    } catch (const std::exception& error) {  // no bus, or no thread
        __android_log_print(ANDROID_LOG_ERROR, "vppd", "no connection: %s", error.what());
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

// The death may be known before the session is.
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

RemoteFactory::Sessions RemoteFactory::allHeld() {
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
        all = allHeld();
    }
    for (const auto& session : all) {
        if (session->owner() == owner) session->declareDead();
    }
    release(std::move(all), nullptr);
}

// Once for each connection.
void RemoteFactory::onConnectionLost(const Bus* bus) {
    Sessions all;
    std::shared_ptr<Bus> lost;
    {
        const std::lock_guard lock(mLock);
        if (mBus.get() != bus || bus == nullptr) return;
        lost.swap(mBus);
        ++mDeaths;
        all = allHeld();
    }
    for (const auto& session : all) {
        if (session->bus() == bus) session->declareDead();
    }
    release(std::move(all), std::move(lost));
}

// Of all sessions the dead ones are released, every client being told before any is waited for. No
// last reference, to a session or to the connection, ends on the thread that reads the bus.
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

void RemoteFactory::end() {
    std::shared_ptr<Bus> bus;
    {
        const std::lock_guard lock(mLock);
        mEnded = true;
        bus = mBus;
    }
    if (bus != nullptr) {
        bus->stopTelling();
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

    // Sessions that a client still holds keep the connection, and its reading thread, for calls
    // that are under way.
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
