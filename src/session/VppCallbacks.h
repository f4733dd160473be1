// SPDX-License-Identifier: Apache-2.0
// The object by which the VPP service reaches a component. Private to src/.
#pragma once

#include <aidl/vendor/vuq/hardware/vpp/BnVppCallbacks.h>
#include <qoz/VppComponent.h>

#include <cstdint>
#include <memory>

namespace android {

// Its operations run on binder threads, several at once, and answer OK in every case. It holds its
// component strongly: the component lives at least as long as the service holds this object. It
// belongs to the session that was being opened when it was made; once a later enable() has begun,
// what arrives through it is dropped.
class VppComponent::IVppCallbacks : public ::aidl::vendor::vuq::hardware::vpp::BnVppCallbacks {
  public:
    using VppError = ::aidl::vendor::vuq::hardware::vpp::VppError;

    // Belongs to the session that is being opened.
    explicit IVppCallbacks(std::shared_ptr<VppComponent> component);
    ~IVppCallbacks() override;

    // Null on allocation failure, or when no std::shared_ptr owns the component.
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
    // What all six share: the checks, `action` on the component, and the result.
    template <typename Action>
    ::ndk::ScopedAStatus handle(const char* operation, VppError* result, Action action);

    std::shared_ptr<VppComponent> mVppComponent;
    const uint32_t mSession;  // number of the enable() that it was made by
};

}  // namespace android
