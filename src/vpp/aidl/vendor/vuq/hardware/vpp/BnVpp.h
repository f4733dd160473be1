// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <aidl/vendor/vuq/hardware/vpp/IVpp.h>

#include <cstdint>
#include <string>

namespace aidl::vendor::vuq::hardware::vpp {

class BnVpp : public ::ndk::BnCInterface<IVpp> {
  public:
    BnVpp();
    ~BnVpp() override;

    ::ndk::ScopedAStatus getInterfaceVersion(int32_t* _aidl_return) final;
    ::ndk::ScopedAStatus getInterfaceHash(std::string* _aidl_return) final;

  protected:
    ::ndk::SpAIBinder createBinder() override;
};

}  // namespace aidl::vendor::vuq::hardware::vpp
