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
#include "vpp/VppCallbacks.h"

namespace android {
namespace {

using vpp::VppError;

}  // namespace

VppComponent::SessionControl::SessionControl(VppComponent& component, Parts& parts)
    : c(component), p(parts), mLog(parts.log) {}

// On allocation failure, closes a session that has been opened already, so that the component is
// never partly enabled.
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

// Ends the previous session, resets the records of outstanding buffers and answers, and then opens
// a session with the service. INIT is set last, because frames are accepted from then on.
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

// From here on events of the previous session are dropped. Waits, within the limit, for an event
// that is being handled now, because it may be inside a callback of the client.
void VppComponent::SessionControl::beginSession() {
    WaitBudget waits = p.waitLimit.budget();
    const Gate::Closure closure(p.eventGate, &waits);
    if (!closure) VPP_LOGE("enable: an event of the previous session is still being handled");
    mNumber.fetch_add(1, std::memory_order_acq_rel);
    p.returns.deliverDirectly(false);
}

bool VppComponent::SessionControl::acquireService() {
    c.mVppService = findVppService(p.log, &VppComponent::waitForService);
    return c.mVppService != nullptr;
}

// If the service refuses initSession(), the state becomes ERROR, because the service may keep the
// callback object it was given. The client leaves ERROR by disable().
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

// The watch holds the component weakly. A death notice for an earlier session is ignored.
void VppComponent::SessionControl::watchForDeath() {
    const uint32_t session = number();
    mDeathWatch = DeathWatch(p.service.sessionBinder(), [weak = c.weak_from_this(), session] {
        const std::shared_ptr<VppComponent> component = weak.lock();
        if (component == nullptr) return;
        Parts& parts = *component->mParts;
        const Gate::Passage passage(parts.eventGate, nullptr);
        if (passage && parts.session.number() == session) parts.session.onServiceDied(session);
    });
}

// Runs on a binder thread. The client's buffers are returned first, so that an operation that waits
// for the service finds all of them returned when its wait ends. A callback of the client may
// outlast the limits of disable() and enable(); the next session's waits must not end then.
void VppComponent::SessionControl::onServiceDied(uint32_t session) {
    VPP_LOGE("the vpp service has died");
    p.returns.onServiceDied();
    if (number() == session) p.events.onServiceDied();
}

// Takes the component's lock only briefly, because a start that still runs on the worker needs it.
// The state is read twice, because such a start may change it until the worker has been joined. In
// ERROR the session stays open: the state of the service is unknown, and buffers that it still
// returns must reach the client.
void VppComponent::SessionControl::disable() {
    status state = UNINIT;
    {
        const std::lock_guard<std::mutex> lock(c.mLock);
        VPP_LOGI("disable");
        state = c.mStatus.get();
    }
    if (state == UNINIT) return;
    if (state != ERROR) waitForPendingStart();
    // Keeps output buffers out until this function ends. A start on the worker that is still
    // running does so itself.
    WaitBudget waits = p.waitLimit.budget();
    std::optional<Gate::Closure> closure;
    if (!p.worker.isStartPending()) closure.emplace(p.outputGate, &waits);
    if (state != ERROR) closeSession();
    VPP_LOGI("Start exiting VPP OBD thread after vpp instance release ...");
    p.worker.stop();
    VPP_LOGI("component thread is terminated");
    awaitOtherThreads(closure);
    if (state != ERROR) {
        letGoOfSession();
    } else if (c.mStatus != ERROR) {
        // A start that was pending at the beginning has left ERROR and opened the session.
        closeSession();
        letGoOfSession();
    }
    p.returns.deliverDirectly(true);
    // An event of the session that has just ended may still be inside a callback of the client. The
    // wait shares the budget of the gate for output buffers, so that disable() ends in time.
    if (state != ERROR && !p.eventGate.settle(waits)) {
        VPP_LOGE("disable: an event of the vpp service is still being handled");
    }
    p.worker.deliverQueued();  // what has been returned since the worker ended
    p.heldSlots.clear();
    p.converter.destroy();
    p.sidePool.clear();
    p.yuvPool.clear();
    c.mStatus = UNINIT;
}

// Another thread may still be starting the session for an output buffer, or queueing one: the first
// wait for it was limited, or was left out because a start was pending. Its calls into the service
// need the session, so this wait has no limit. The worker has ended, so no further start begins.
// Does not wait on a thread inside a callback of this component, which may be that thread itself.
void VppComponent::SessionControl::awaitOtherThreads(std::optional<Gate::Closure>& closure) const {
    while ((!closure || !*closure) && !p.client.isOnThisThread()) {
        WaitBudget waits = p.waitLimit.budget();
        closure.emplace(p.outputGate, &waits);
    }
}

// Waits up to 1.2 s. Does not wait on a thread inside a callback of this component (a last release
// there runs disable()): the start would have to wait for that callback.
void VppComponent::SessionControl::waitForPendingStart() const {
    constexpr int kPolls = 600;
    constexpr auto kPollPause = std::chrono::microseconds(2000);
    for (int i = 0; i < kPolls && p.worker.isStartPending() && !p.client.isOnThisThread(); ++i) {
        VPP_LOGI("Wait for VPP start complete .. ");
        std::this_thread::sleep_for(kPollPause);
    }
}

// Calls terminateSession() whatever close() returns, because only terminateSession() makes the
// service release its callback object.
void VppComponent::SessionControl::closeSession() {
    if (!p.service.hasSession()) return;
    const VppError result = p.service.close();
    if (result != VppError::VPP_OK) VPP_LOGI("vppClose error=%s", toString(result).c_str());
    p.service.terminateSession();
}

// Used by enable() before the worker exists.
void VppComponent::SessionControl::abandonSession() {
    closeSession();
    p.service.reset();
    mDeathWatch = {};
}

// Must be called only after the worker has been joined, because a start that outlasted
// waitForPendingStart() still uses the session until then.
void VppComponent::SessionControl::letGoOfSession() {
    mDeathWatch = {};
    std::shared_ptr<vpp::IVppService> service;
    std::shared_ptr<vpp::IVpp> session;
    {
        const std::lock_guard<std::mutex> lock(c.mLock);
        service.swap(c.mVppService);
        session.swap(c.mVpp);
    }
    service.reset();  // before the session
    session.reset();
}

}  // namespace android
