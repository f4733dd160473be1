// SPDX-License-Identifier: Apache-2.0
#include "session/SessionControl.h"

#include <chrono>
#include <memory>
#include <mutex>
#include <new>
#include <optional>
#include <thread>
#include <utility>

#include "session/Parts.h"
#include "session/ServiceLookup.h"
#include "session/VppCallbacks.h"

namespace android {
namespace {

using vpp::VppError;

}  // namespace

VppComponent::SessionControl::SessionControl(VppComponent& component, Parts& parts)
    : c(component), p(parts), mLog(parts.log) {}

// Nothing is half enabled: on allocation failure a session that has been opened is closed again.
bool VppComponent::SessionControl::enable(const std::string& name, IQOZCallback* callback,
                                          bool debug) {
    const std::lock_guard<std::mutex> lock(c.mLock);
    try {
        return begin(name, callback, debug);
    } catch (const std::bad_alloc&) {
        VPP_LOGE("enable: out of memory");
        if (p.service.hasSession()) abandonSession();
        return false;
    }
}

// First the previous session ends for good, then the books begin empty, then the service is asked.
// INIT comes last: from then on frames are taken.
bool VppComponent::SessionControl::begin(const std::string& name, IQOZCallback* callback,
                                         bool debug) {
    if (c.mStatus != UNINIT) {
        VPP_LOGE("previous cmp in not uninit");
        return false;
    }
    beginSession();
    mDeathWatch = {};
    c.mName = name;
    mLog.rename(name);
    p.client.set(callback);
    if (debug) c.mStatus.debug();
    VPP_LOGI("enable");
    p.outstanding.restart();
    p.events.restart();
    const size_t undelivered = p.delivery.clear();
    if (undelivered > 0) {
        VPP_LOGE("%u output buffers of the previous session dropped",
                 static_cast<uint32_t>(undelivered));
    }
    if (!c.acquireVppService()) {
        VPP_LOGE("unable to get vpp service");
        return false;
    }
    if (!openSession()) return false;
    if (!p.worker.launch()) {
        abandonSession();
        return false;
    }
    c.mStatus = INIT;
    VPP_LOGI("Success enable vpp service");
    return true;
}

// From here on the previous session's events are dropped. One that is under way is waited for,
// within the limit: it may be within a callback of the client's.
void VppComponent::SessionControl::beginSession() {
    WaitBudget waits = p.waitLimit.budget();
    const Gate::Closure closure(p.eventGate, &waits);
    mNumber.fetch_add(1, std::memory_order_acq_rel);
}

bool VppComponent::SessionControl::acquireService() {
    c.mVppService = findVppService(p.log, &VppComponent::waitForService);
    return c.mVppService != nullptr;
}

// A refused initSession() leaves ERROR, which the client leaves by disable(): the service may hold
// what it was given.
bool VppComponent::SessionControl::openSession() {
    VPP_LOGI("getNewVppSession");
    if (!p.service.openSession()) {
        VPP_LOGE("unable to get new session from vpp service");
        return false;
    }
    const std::shared_ptr<IVppCallbacks> callbacks = IVppCallbacks::makeFor(c.weak_from_this());
    if (callbacks == nullptr) {
        VPP_LOGE("Cannot allocate IVppCallbacks");
        return false;
    }
    VPP_LOGI("initSession");
    if (p.service.initSession(callbacks) != VppError::VPP_OK) {
        VPP_LOGE("failed to init vpp");
        c.mStatus = ERROR;
        return false;
    }
    watchForDeath();
    return true;
}

// The watch does not keep the component alive, and a notice for an earlier session does nothing.
void VppComponent::SessionControl::watchForDeath() {
    const uint32_t session = number();
    mDeathWatch = DeathWatch(p.service.sessionBinder(), [weak = c.weak_from_this(), session] {
        const std::shared_ptr<VppComponent> component = weak.lock();
        if (component == nullptr) return;
        Parts& parts = *component->mParts;
        const Gate::Passage passage(parts.eventGate, nullptr);
        if (passage && parts.session.number() == session) parts.session.onServiceDied();
    });
}

// On a binder thread. The client gets its buffers back first, so that an operation which waits for
// the service finds all of them returned when its wait ends.
void VppComponent::SessionControl::onServiceDied() {
    VPP_LOGE("the vpp service has died");
    p.returns.onServiceDied();
    p.events.onServiceDied();
}

// Without the component's lock but for moments: a start that still runs on the worker needs it. The
// state is read twice, because such a start may change it until the worker has been joined. In
// ERROR the session stays open: the service is in a state that nobody knows, and what it still
// returns reaches the client.
void VppComponent::SessionControl::disable() {
    status state = UNINIT;
    {
        const std::lock_guard<std::mutex> lock(c.mLock);
        VPP_LOGI("disable");
        state = c.mStatus.get();
    }
    if (state == UNINIT) return;
    if (state != ERROR) waitForPendingStart();
    // Until the end no output buffer comes in, from whatever thread. A start that still runs keeps
    // them out itself.
    WaitBudget waits = p.waitLimit.budget();
    std::optional<Gate::Closure> closure;
    if (!p.worker.isStartPending()) closure.emplace(p.outputGate, &waits);
    if (state != ERROR) closeSession();
    VPP_LOGI("Start exiting VPP OBD thread after vpp instance release ...");
    p.worker.stop();
    VPP_LOGI("component thread is terminated");
    if (state != ERROR) {
        letGoOfSession();
    } else if (c.mStatus != ERROR) {
        // A start that was pending when this began has opened it.
        closeSession();
        letGoOfSession();
    }
    p.heldSlots.clear();
    p.converter.destroy();
    p.sidePool.clear();
    p.yuvPool.clear();
    c.mStatus = UNINIT;
}

// Up to 1.2 s. A component that is let go of from within a callback of the worker does not wait:
// the start would wait for that callback.
void VppComponent::SessionControl::waitForPendingStart() const {
    constexpr int kPolls = 600;
    constexpr auto kPollPause = std::chrono::microseconds(2000);
    for (int i = 0; i < kPolls && p.worker.isStartPending() && !p.client.isOnThisThread(); ++i) {
        VPP_LOGI("Wait for VPP start complete .. ");
        std::this_thread::sleep_for(kPollPause);
    }
}

// terminateSession() in any case: it is what makes the service let its callback object go.
void VppComponent::SessionControl::closeSession() {
    const VppError result = p.service.close();
    if (result != VppError::VPP_OK) VPP_LOGI("vppClose error=%s", toString(result).c_str());
    p.service.terminateSession();
}

// Within enable(), before there is a worker.
void VppComponent::SessionControl::abandonSession() {
    closeSession();
    p.service.reset();
    mDeathWatch = {};
}

// Only after the worker has been joined: a start that outlasted the polls was still using it.
void VppComponent::SessionControl::letGoOfSession() {
    mDeathWatch = {};
    std::shared_ptr<vpp::IVppService> service;
    std::shared_ptr<vpp::IVpp> session;
    {
        const std::lock_guard<std::mutex> lock(c.mLock);
        service.swap(c.mVppService);
        session.swap(c.mVpp);
    }
}

}  // namespace android
