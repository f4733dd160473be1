// SPDX-License-Identifier: Apache-2.0
#include "vpp/VppCallbacks.h"

#include <new>
#include <utility>

#include "base/Log.h"
#include "session/Parts.h"

namespace android {

VppComponent::IVppCallbacks::IVppCallbacks(std::shared_ptr<VppComponent> component)
    : mVppComponent(std::move(component)),
      mSession(mVppComponent == nullptr ? 0 : mVppComponent->mParts->session.number()) {}

VppComponent::IVppCallbacks::~IVppCallbacks() {
    mVppComponent.reset();
}

std::shared_ptr<VppComponent::IVppCallbacks> VppComponent::IVppCallbacks::makeFor(
    const std::weak_ptr<VppComponent>& component) {
    std::shared_ptr<VppComponent> owned = component.lock();
    if (owned == nullptr) return nullptr;
    try {
        return ndk::SharedRefBase::make<IVppCallbacks>(std::move(owned));
    } catch (const std::bad_alloc&) {
        return nullptr;
    }
}

// Only enable() closes the gate, for the moment in which the next session begins. So an event
// either finishes before that or sees the new session number and is dropped.
template <typename Action>
ndk::ScopedAStatus VppComponent::IVppCallbacks::handle(const char* operation, VppError* result,
                                                       Action action) {
    if (result == nullptr) {
        VPP_LOGE_BARE("%s: invalid ptr", operation);
        return ndk::ScopedAStatus::ok();
    }
    if (mVppComponent != nullptr) {
        Parts& parts = *mVppComponent->mParts;
        const Gate::Passage passage(parts.eventGate, nullptr);
        if (passage && parts.session.number() == mSession) {
            action(*mVppComponent);
        } else {
            const SessionLog& mLog = parts.log;
            VPP_LOGE("%s: event of a previous session dropped", operation);
        }
    }
    *result = VppError::VPP_OK;
    return ndk::ScopedAStatus::ok();
}

ndk::ScopedAStatus VppComponent::IVppCallbacks::eventDrainDone(VppError* _aidl_return) {
    return handle("eventDrainDone", _aidl_return, [](VppComponent& c) { c.onVppEDD(); });
}

// Ignored: the errors that the service reports here also appear in the results of the component's
// own calls.
ndk::ScopedAStatus VppComponent::IVppCallbacks::eventError(VppError /*error*/,
                                                           VppError* _aidl_return) {
    return handle("eventError", _aidl_return, [](VppComponent&) {});
}

ndk::ScopedAStatus VppComponent::IVppCallbacks::eventFlushDone(const vpp::FlushDone& done,
                                                               VppError* _aidl_return) {
    return handle("eventFlushDone", _aidl_return, [&](VppComponent& c) { c.onVppEFD(done); });
}

ndk::ScopedAStatus VppComponent::IVppCallbacks::eventReconfigDone(const vpp::ReconfigDone& done,
                                                                  VppError* _aidl_return) {
    return handle("eventReconfigDone", _aidl_return, [&](VppComponent& c) { c.onVppERD(done); });
}

ndk::ScopedAStatus VppComponent::IVppCallbacks::inputBufferDone(const vpp::VppBuffer& buffer,
                                                                VppError* _aidl_return) {
    return handle("inputBufferDone", _aidl_return, [&](VppComponent& c) { c.onVppIBD(buffer); });
}

ndk::ScopedAStatus VppComponent::IVppCallbacks::outputBufferDone(const vpp::VppBuffer& buffer,
                                                                 VppError* _aidl_return) {
    return handle("outputBufferDone", _aidl_return, [&](VppComponent& c) { c.onVppOBD(buffer); });
}

}  // namespace android
