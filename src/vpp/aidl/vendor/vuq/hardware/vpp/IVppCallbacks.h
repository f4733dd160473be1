// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <aidl/vendor/vuq/hardware/vpp/FlushDone.h>
#include <aidl/vendor/vuq/hardware/vpp/ReconfigDone.h>
#include <aidl/vendor/vuq/hardware/vpp/VppBuffer.h>
#include <aidl/vendor/vuq/hardware/vpp/VppError.h>
#include <android/binder_interface_utils.h>

#include <cstdint>
#include <memory>
#include <string>

namespace aidl::vendor::vuq::hardware::vpp {

// What a session reports to its client, on the client's binder threads, several at once. The result
// is always VPP_OK: the client has no way to refuse a report.
class IVppCallbacks : public ::ndk::ICInterface {
  public:
    static const char* descriptor;
    static inline const int32_t version = 1;
    static inline const std::string hash = "3a7b54438275496adb8572f88e80b98b71f9801b";

    IVppCallbacks();
    ~IVppCallbacks() override;

    // Null when the binder is null or is not this interface.
    static std::shared_ptr<IVppCallbacks> fromBinder(const ::ndk::SpAIBinder& binder);

    // A drain is finished: everything that was queued has been processed and returned.
    virtual ::ndk::ScopedAStatus eventDrainDone(VppError* _aidl_return) = 0;
    // Something went wrong outside any command. The library does not act on it.
    virtual ::ndk::ScopedAStatus eventError(VppError in_error, VppError* _aidl_return) = 0;
    // One port has returned its buffers.
    virtual ::ndk::ScopedAStatus eventFlushDone(const FlushDone& in_done,
                                                VppError* _aidl_return) = 0;
    // A reconfiguration is finished, or has failed.
    virtual ::ndk::ScopedAStatus eventReconfigDone(const ReconfigDone& in_done,
                                                   VppError* _aidl_return) = 0;
    // The session has read a source frame and does not need it any more. Of the record only cookie
    // and timestamp are read.
    virtual ::ndk::ScopedAStatus inputBufferDone(const VppBuffer& in_buffer,
                                                 VppError* _aidl_return) = 0;
    // An output buffer comes back, filled or (pixelFilledLen 0) not; or, when the session passes
    // frames through, a source frame.
    virtual ::ndk::ScopedAStatus outputBufferDone(const VppBuffer& in_buffer,
                                                  VppError* _aidl_return) = 0;

    virtual ::ndk::ScopedAStatus getInterfaceVersion(int32_t* _aidl_return) = 0;
    virtual ::ndk::ScopedAStatus getInterfaceHash(std::string* _aidl_return) = 0;
};

}  // namespace aidl::vendor::vuq::hardware::vpp
