#include "host/vppd/RemoteService.h"

#include "host/vppd/Names.h"
#include "host/vppd/RemoteSession.h"
#include "host/vppservice/SerialExecutor.h"
#include "vppd/VppProxy.h"

#include <aidl/vendor/vuq/hardware/vpp/BnVppService.h>
#include <android/log.h>
#include <host/platform/ServiceRegistry.h>

#include <algorithm>
#include <set>
#include <utility>
#include <vector>

namespace qoz::host {
namespace vppd {
namespace {

class ServiceProxy final : public sdbus::ProxyInterfaces<::org::qoz::VppService1_proxy> {
  public:
    ServiceProxy(sdbus::IConnection& connection, const std::string& owner)
        : ProxyInterfaces(connection, owner, kServicePath) {
        registerProxy();
    }
    ~ServiceProxy() { unregisterProxy(); }

    ServiceProxy(const ServiceProxy&) = delete;
    ServiceProxy& operator=(const ServiceProxy&) = delete;
};

// Asks the process that has the name now; what the call throws fails it.
template <typename Call>
ndk::ScopedAStatus ask(Bus& bus, const Call& call) {
    try {
        const std::optional<std::string> owner = bus.ownerOf(kBusName);
        if (owner) {
            ServiceProxy proxy(bus.connection(), *owner);
            call(proxy, *owner);
            return ndk::ScopedAStatus::ok();
        }
    } catch (const sdbus::Error& error) {
        __android_log_print(ANDROID_LOG_WARN, "vppd", "call failed: %s", error.what());
    }
    return ndk::ScopedAStatus::fromStatus(STATUS_DEAD_OBJECT);
}

// The factory, and what it knows of the deaths of the processes behind it.
class RemoteFactory : public vpp::BnVppService {
  public:
    explicit RemoteFactory(std::shared_ptr<Bus> bus) : mBus(std::move(bus)) {}

    ndk::ScopedAStatus getNewVppSession(int32_t flags, std::shared_ptr<vpp::IVpp>* result) override;
    ndk::ScopedAStatus getSessionCount(int32_t* result) override;

    // The process of this unique name has died; empty: whoever there was. On any thread.
    void died(const std::string& owner);
    void end();
    uint64_t deaths() const {
        const std::lock_guard lock(mLock);
        return mDeaths;
    }

  private:
    void adopt(const std::shared_ptr<RemoteSession>& session);

    const std::shared_ptr<Bus> mBus;
    mutable std::mutex mLock;
    bool mEnded = false;
    uint64_t mDeaths = 0;
    std::set<std::string> mDead;  // unique names are never given again
    std::vector<std::weak_ptr<RemoteSession>> mSessions;

    vppservice::SerialExecutor mReleases;
};

ndk::ScopedAStatus RemoteFactory::getNewVppSession(int32_t flags,
                                                   std::shared_ptr<vpp::IVpp>* result) {
    {
        const std::lock_guard lock(mLock);
        if (mEnded || result == nullptr) return ndk::ScopedAStatus::fromStatus(STATUS_DEAD_OBJECT);
    }
    mBus->startService(kBusName);
    return ask(*mBus, [&](ServiceProxy& proxy, const std::string& owner) {
        const sdbus::ObjectPath path = proxy.GetNewVppSession(flags);
        std::shared_ptr<RemoteSession> session;
        if (path != kNoSession) {
            session = make<RemoteSession>(mBus, owner, path);
            adopt(session);
        }
        *result = std::move(session);
    });
}

ndk::ScopedAStatus RemoteFactory::getSessionCount(int32_t* result) {
    if (result == nullptr) return ndk::ScopedAStatus::fromStatus(STATUS_DEAD_OBJECT);
    return ask(*mBus,
               [&](ServiceProxy& proxy, const std::string&) { *result = proxy.GetSessionCount(); });
}

// The death may be known before the session is.
void RemoteFactory::adopt(const std::shared_ptr<RemoteSession>& session) {
    const std::lock_guard lock(mLock);
    std::erase_if(mSessions, [](const auto& known) { return known.expired(); });
    mSessions.push_back(session);
    if (mEnded || mDead.contains(session->owner())) session->declareDead();
}

// The client's objects may go with the sessions, and must not go on a thread that holds their locks
// or that they wait for; nor may a session's last reference end on the reading thread.
void RemoteFactory::died(const std::string& owner) {
    std::vector<std::shared_ptr<RemoteSession>> affected;
    {
        const std::lock_guard lock(mLock);
        ++mDeaths;
        if (!owner.empty()) mDead.insert(owner);
        for (const auto& known : mSessions) {
            auto session = known.lock();
            if (session == nullptr) continue;
            if (owner.empty() || session->owner() == owner) session->declareDead();
            affected.push_back(std::move(session));
        }
    }
    mReleases.post([affected = std::move(affected), owner]() mutable {
        for (auto& session : affected) {
            if (owner.empty() || session->owner() == owner) session->release();
            session.reset();
        }
    });
}

void RemoteFactory::end() {
    {
        const std::lock_guard lock(mLock);
        mEnded = true;
    }
    died({});
    const auto released = std::make_shared<std::promise<void>>();
    mReleases.post([released] { released->set_value(); });
    released->get_future().wait();
    mReleases.stop(kCallLimit);
}

}  // namespace
}  // namespace vppd

struct RemoteVppService::Impl {
    explicit Impl(const std::string& address)
        : bus(std::make_shared<vppd::Bus>(address)),
          factory(ndk::SharedRefBase::make<vppd::RemoteFactory>(bus)) {
        bus->watchOwners(vppd::kBusName, [this](const auto&, const auto& before, const auto&) {
            if (!before.empty()) factory->died(before);
        });
        bus->start([this] { factory->died({}); });
        addService(defaultInstance<vppd::vpp::IVppService>(), factory->asBinder());
    }
    ~Impl() {
        removeService(defaultInstance<vppd::vpp::IVppService>());
        bus->stopTelling();
        factory->end();
    }

    Impl(const Impl&) = delete;
    Impl& operator=(const Impl&) = delete;

    // Sessions that a client still holds keep the connection, and its reading thread, for calls
    // that are under way.
    const std::shared_ptr<vppd::Bus> bus;
    const std::shared_ptr<vppd::RemoteFactory> factory;
};

RemoteVppService::RemoteVppService(const std::string& address)
    : mImpl(std::make_unique<Impl>(address)) {}

RemoteVppService::~RemoteVppService() = default;

uint64_t RemoteVppService::deaths() const {
    return mImpl->factory->deaths();
}

uint64_t RemoteVppService::faultsFired() const {
    uint64_t fired = 0;
    const auto asked =
        vppd::ask(*mImpl->bus, [&](auto& proxy, const auto&) { fired = proxy.GetFaultsFired(); });
    return asked.isOk() ? fired : 0;
}

}  // namespace qoz::host
