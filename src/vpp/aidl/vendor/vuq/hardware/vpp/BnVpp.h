#pragma once

#include <aidl/vendor/vuq/hardware/vpp/IVpp.h>
#include <memory>
#include <string>

namespace aidl::vendor::vuq::hardware::vpp {

class BnVpp : public ::ndk::BnCInterface<IVpp> {
  public:
    ::ndk::ScopedAStatus getInterfaceVersion(int32_t* _aidl_return) final {
        *_aidl_return = version;
        return ::ndk::ScopedAStatus::ok();
    }
    ::ndk::ScopedAStatus getInterfaceHash(std::string* _aidl_return) final {
        *_aidl_return = hash;
        return ::ndk::ScopedAStatus::ok();
    }

  protected:
    ::ndk::SpAIBinder createBinder() override {
        return ::ndk::SpAIBinder(AIBinder_fromLocalInterface(
            std::static_pointer_cast<::ndk::ICInterface>(this->shared_from_this())));
    }
};

}  // namespace aidl::vendor::vuq::hardware::vpp
