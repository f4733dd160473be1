#pragma once

#include <aidl/vendor/vuq/hardware/vpp/IVpp.h>
#include <android/binder_interface_utils.h>
#include <cstdint>
#include <memory>
#include <string>

namespace aidl::vendor::vuq::hardware::vpp {

// The factory of sessions.
class IVppService : public ::ndk::ICInterface {
  public:
    static constexpr const char* descriptor = "vendor.vuq.hardware.vpp.IVppService";
    static constexpr int32_t version = 1;
    static constexpr const char* hash = "5b1f0c9e7d24a86f3e90b7c158d2a4463f7be1c0";

    // Null when the binder is null or is not this interface.
    static std::shared_ptr<IVppService> fromBinder(const ::ndk::SpAIBinder& binder) {
        return std::dynamic_pointer_cast<IVppService>(
            ::ndk::ICInterface::asInterface(binder.get()));
    }

    virtual ::ndk::ScopedAStatus getNewVppSession(int32_t in_flags,
                                                  std::shared_ptr<IVpp>* _aidl_return) = 0;
    virtual ::ndk::ScopedAStatus getSessionCount(int32_t* _aidl_return) = 0;

    virtual ::ndk::ScopedAStatus getInterfaceVersion(int32_t* _aidl_return) = 0;
    virtual ::ndk::ScopedAStatus getInterfaceHash(std::string* _aidl_return) = 0;
};

}  // namespace aidl::vendor::vuq::hardware::vpp
