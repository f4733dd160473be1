// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <aidl/vendor/vuq/hardware/vpp/IVpp.h>
#include <android/binder_interface_utils.h>

#include <cstdint>
#include <memory>
#include <string>

namespace aidl::vendor::vuq::hardware::vpp {

// The factory of sessions. It is registered with the service manager under the name of this
// interface followed by "/default".
class IVppService : public ::ndk::ICInterface {
  public:
    static const char* descriptor;
    static inline const int32_t version = 1;
    static inline const std::string hash = "3a7b54438275496adb8572f88e80b98b71f9801b";

    IVppService();
    ~IVppService() override;

    // Null when the binder is null or is not this interface.
    static std::shared_ptr<IVppService> fromBinder(const ::ndk::SpAIBinder& binder);

    // Returns a new session, or null if none is available. The library passes 0 for flags.
    virtual ::ndk::ScopedAStatus getNewVppSession(int32_t in_flags,
                                                  std::shared_ptr<IVpp>* _aidl_return) = 0;
    // Returns the number of sessions. The library does not call it.
    virtual ::ndk::ScopedAStatus getSessionCount(int32_t* _aidl_return) = 0;

    virtual ::ndk::ScopedAStatus getInterfaceVersion(int32_t* _aidl_return) = 0;
    virtual ::ndk::ScopedAStatus getInterfaceHash(std::string* _aidl_return) = 0;
};

}  // namespace aidl::vendor::vuq::hardware::vpp
