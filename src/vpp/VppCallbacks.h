// SPDX-License-Identifier: Apache-2.0
// The object through which the VPP service calls a component. Private to src/.
#pragma once

#include <aidl/vendor/vuq/hardware/vpp/BnVppCallbacks.h>
#include <qoz/VppComponent.h>

#include <cstdint>
#include <memory>

namespace android {

// The operations run on binder threads, possibly several at once, and always answer OK. The object
// holds a strong reference to its component, so the component lives at least as long as the service
// keeps the object. It belongs to the session that was being opened when it was created; once a
// later enable() has begun, calls through it are dropped.
class VppComponent::IVppCallbacks : public ::aidl::vendor::vuq::hardware::vpp::BnVppCallbacks {
  public:
    using VppError = ::aidl::vendor::vuq::hardware::vpp::VppError;

    // Belongs to the session that is being opened. `component` may be null; events are then
    // ignored.
    explicit IVppCallbacks(std::shared_ptr<VppComponent> component);
    ~IVppCallbacks() override;

    // Returns null on allocation failure, or if no std::shared_ptr owns the component.
    static std::shared_ptr<IVppCallbacks> makeFor(const std::weak_ptr<VppComponent>& component);

    ::ndk::ScopedAStatus eventDrainDone(VppError* _aidl_return) override;
    ::ndk::ScopedAStatus eventError(VppError error, VppError* _aidl_return) override;
    ::ndk::ScopedAStatus eventFlushDone(const vpp::FlushDone& done,
                                        VppError* _aidl_return) override;
    ::ndk::ScopedAStatus eventReconfigDone(const vpp::ReconfigDone& done,
                                           VppError* _aidl_return) override;
    ::ndk::ScopedAStatus inputBufferDone(const vpp::VppBuffer& buffer,
                                         VppError* _aidl_return) override;
    ::ndk::ScopedAStatus outputBufferDone(const vpp::VppBuffer& buffer,
                                          VppError* _aidl_return) override;

  private:
    // The common code of the six operations: performs the checks, runs `action` on the component,
    // and sets the result.
    template <typename Action>
    ::ndk::ScopedAStatus handle(const char* operation, VppError* result, Action action);

    std::shared_ptr<VppComponent> mVppComponent;
    const uint32_t mSession;  // the session number when the object was created
};

}  // namespace android
