// SPDX-License-Identifier: Apache-2.0
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
    if (result == nullptr) return ndk::ScopedAStatus::fromStatus(STATUS_DEAD_OBJECT);
    std::shared_ptr<Session> session;
    auto status = openSession(flags, nullptr, &session);
    if (status.isOk()) *result = std::move(session);
    return status;
}

// The fault is looked for without the lock, because a fault that kills the service takes it. The
// service may die during the delay; the second look at mDead, under the lock, ensures that no
// session is created after die() has collected them all.
ndk::ScopedAStatus Service::openSession(int32_t flags, std::shared_ptr<Quota> quota,
                                        std::shared_ptr<Session>* result) {
    const auto dead = [] { return ndk::ScopedAStatus::fromStatus(STATUS_DEAD_OBJECT); };
    if (isDead()) return dead();
    const auto injector = faults();
    const FaultEffect effect = injector->effectOn("getNewVppSession");
    if (effect.lost) return dead();
    mPause.sleepFor(effect.delay);
    *result = nullptr;
    if (flags != 0 || effect.answer || effect.manner == Manner::Drop) {
        return ndk::ScopedAStatus::ok();
    }
    const std::lock_guard lock(mLock);
    if (mDead) return dead();
    *result = make<Session>(injector, std::move(quota));
    std::erase_if(mSessions, [](const auto& known) { return known.expired(); });
    mSessions.push_back(*result);
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

// The order matters. First no new session can be created, then no session takes another call, and
// only then are the clients told.
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
        // Announce the death before the release. The release may destroy the clients' objects, so
        // it runs on the executor's thread and not here, where the caller may hold locks that their
        // destructors take.
        mReleases.post([this, all = std::move(all)]() mutable {
            for (const auto& session : all) {
                announceDeath(*session);
            }
            for (const auto& session : all) {
                session->release();
            }
            all.clear();
            mGone.set_value();
        });
        if (mOnDeath) mOnDeath();
    });
}

void Service::awaitEnd() {
    mGone.get_future().wait();
}

// The injector refers to the service weakly, because the service owns it.
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

RegisteredService::RegisteredService(std::function<void()> onDeath)
    : mService(ndk::SharedRefBase::make<Service>(std::move(onDeath))) {
    addService(Service::instance(), mService->asBinder());
}

RegisteredService::~RegisteredService() {
    mService->die();
    mService->awaitEnd();
}

}  // namespace qoz::host::vppservice

namespace qoz::host {

struct VppService::Impl {
    vppservice::RegisteredService service;
};

VppService::VppService() : mImpl(std::make_unique<Impl>()) {}

VppService::~VppService() = default;

}  // namespace qoz::host
