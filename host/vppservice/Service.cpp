#include "host/vppservice/Service.h"

#include <host/control.h>
#include <host/platform/BinderDeath.h>
#include <host/platform/ServiceRegistry.h>

#include <algorithm>
#include <utility>

namespace qoz::host::vppservice {

std::string Service::instance() {
    return defaultInstance<vpp::IVppService>();
}

ndk::ScopedAStatus Service::getNewVppSession(int32_t flags, std::shared_ptr<vpp::IVpp>* result) {
    const auto dead = [] { return ndk::ScopedAStatus::fromStatus(STATUS_DEAD_OBJECT); };
    if (isDead()) return dead();
    const auto injector = faults();
    const FaultEffect effect = injector->effectOn("getNewVppSession");
    if (effect.lost || result == nullptr) return dead();
    mPause.sleepFor(effect.delay);
    *result = nullptr;
    if (flags != 0 || effect.answer || effect.manner == Manner::Drop) {
        return ndk::ScopedAStatus::ok();
    }
    const std::lock_guard lock(mLock);
    if (mDead) return dead();
    auto session = make<Session>(injector);
    std::erase_if(mSessions, [](const auto& known) { return known.expired(); });
    mSessions.push_back(session);
    *result = std::move(session);
    return ndk::ScopedAStatus::ok();
}

ndk::ScopedAStatus Service::getSessionCount(int32_t* result) {
    if (isDead() || result == nullptr) {
        return ndk::ScopedAStatus::fromStatus(STATUS_DEAD_OBJECT);
    }
    const auto all = sessions();
    *result = static_cast<int32_t>(
        std::count_if(all.begin(), all.end(), [](const auto& one) { return one->isLive(); }));
    return ndk::ScopedAStatus::ok();
}

void Service::die() {
    std::call_once(mDeath, [this] {
        {
            const std::lock_guard lock(mLock);
            mDead = true;
        }
        removeService(instance());
        mPause.end();
        auto all = sessions();
        for (const auto& session : all) {
            session->declareDead();
        }
        // The clients hear of the death first. Their objects may go with the sessions, and must not
        // go on a thread that holds their locks or that they wait for.
        mRelease = std::thread([all = std::move(all)] {
            for (const auto& session : all) {
                announceDeath(*session);
            }
            for (const auto& session : all) {
                session->release();
            }
        });
    });
}

void Service::awaitEnd() {
    if (mRelease.joinable()) mRelease.join();
}

std::shared_ptr<FaultInjector> Service::faults() {
    const std::lock_guard lock(mLock);
    if (mFaults == nullptr) {
        const std::weak_ptr<SharedRefBase> self = ref();
        mFaults = std::make_shared<FaultInjector>([self] {
            const auto alive = std::static_pointer_cast<Service>(self.lock());
            if (alive != nullptr) alive->die();
        });
    }
    return mFaults;
}

std::vector<std::shared_ptr<Session>> Service::sessions() {
    std::vector<std::shared_ptr<Session>> all;
    const std::lock_guard lock(mLock);
    for (const auto& known : mSessions) {
        if (auto session = known.lock()) all.push_back(std::move(session));
    }
    return all;
}

bool Service::isDead() {
    const std::lock_guard lock(mLock);
    return mDead;
}

}  // namespace qoz::host::vppservice

namespace qoz::host {

struct VppService::Impl {
    std::shared_ptr<vppservice::Service> service;
};

VppService::VppService() : mImpl(std::make_unique<Impl>()) {
    mImpl->service = ndk::SharedRefBase::make<vppservice::Service>();
    addService(vppservice::Service::instance(), mImpl->service->asBinder());
}

VppService::~VppService() {
    mImpl->service->die();
    mImpl->service->awaitEnd();
}

}  // namespace qoz::host
