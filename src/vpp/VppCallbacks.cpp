#include "vpp/VppCallbacks.h"

#include <new>
#include <utility>

#include "session/Log.h"

namespace android {

VppComponent::IVppCallbacks::IVppCallbacks(std::shared_ptr<VppComponent> component)
    : mVppComponent(std::move(component)) {}

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

template <typename Action>
ndk::ScopedAStatus VppComponent::IVppCallbacks::handle(const char* operation, VppError* result,
                                                       Action action) {
    if (result == nullptr) {
        VPP_LOGE_BARE("%s: invalid ptr", operation);
        return ndk::ScopedAStatus::ok();
    }
    if (mVppComponent != nullptr) action(*mVppComponent);
    *result = VppError::VPP_OK;
    return ndk::ScopedAStatus::ok();
}

ndk::ScopedAStatus VppComponent::IVppCallbacks::eventDrainDone(VppError* _aidl_return) {
    return handle("eventDrainDone", _aidl_return, [](VppComponent& c) { c.onVppEDD(); });
}

// What the service reports here also shows in the results of the component's own calls.
ndk::ScopedAStatus VppComponent::IVppCallbacks::eventError(VppError /*error*/,
                                                           VppError* _aidl_return) {
    return handle("eventError", _aidl_return, [](VppComponent&) {});
}

ndk::ScopedAStatus VppComponent::IVppCallbacks::eventFlushDone(const FlushDone& done,
                                                               VppError* _aidl_return) {
    return handle("eventFlushDone", _aidl_return, [&](VppComponent& c) { c.onVppEFD(done); });
}

ndk::ScopedAStatus VppComponent::IVppCallbacks::eventReconfigDone(const ReconfigDone& done,
                                                                  VppError* _aidl_return) {
    return handle("eventReconfigDone", _aidl_return, [&](VppComponent& c) { c.onVppERD(done); });
}

ndk::ScopedAStatus VppComponent::IVppCallbacks::inputBufferDone(const VppBuffer& buffer,
                                                                VppError* _aidl_return) {
    return handle("inputBufferDone", _aidl_return, [&](VppComponent& c) { c.onVppIBD(buffer); });
}

ndk::ScopedAStatus VppComponent::IVppCallbacks::outputBufferDone(const VppBuffer& buffer,
                                                                 VppError* _aidl_return) {
    return handle("outputBufferDone", _aidl_return, [&](VppComponent& c) { c.onVppOBD(buffer); });
}

}  // namespace android
