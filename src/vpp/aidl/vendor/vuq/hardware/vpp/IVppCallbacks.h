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

// The events of a session, which the client implements. They are called on the client's binder
// threads, possibly several at the same time. The result is always VPP_OK, because the client
// cannot refuse an event.
class IVppCallbacks : public ::ndk::ICInterface {
  public:
    static const char* descriptor;
    static inline const int32_t version = 1;
    static inline const std::string hash = "3a7b54438275496adb8572f88e80b98b71f9801b";

    IVppCallbacks();
    ~IVppCallbacks() override;

    // Null when the binder is null or is not this interface.
    static std::shared_ptr<IVppCallbacks> fromBinder(const ::ndk::SpAIBinder& binder);

    // A drain is complete: all queued buffers have been processed and returned.
    virtual ::ndk::ScopedAStatus eventDrainDone(VppError* _aidl_return) = 0;
    // An error has occurred outside any command. The library ignores it.
    virtual ::ndk::ScopedAStatus eventError(VppError in_error, VppError* _aidl_return) = 0;
    // A flush of one port is complete: the port has returned its buffers.
    virtual ::ndk::ScopedAStatus eventFlushDone(const FlushDone& in_done,
                                                VppError* _aidl_return) = 0;
    // A reconfiguration is complete or has failed.
    virtual ::ndk::ScopedAStatus eventReconfigDone(const ReconfigDone& in_done,
                                                   VppError* _aidl_return) = 0;
    // Returns a source frame that the session has read and no longer needs. The library reads only
    // the cookie and the timestamp of the record.
    virtual ::ndk::ScopedAStatus inputBufferDone(const VppBuffer& in_buffer,
                                                 VppError* _aidl_return) = 0;
    // Returns an output buffer; pixelFilledLen is 0 if it holds no frame. In bypass mode the
    // session returns a source frame here, unprocessed.
    virtual ::ndk::ScopedAStatus outputBufferDone(const VppBuffer& in_buffer,
                                                  VppError* _aidl_return) = 0;

    virtual ::ndk::ScopedAStatus getInterfaceVersion(int32_t* _aidl_return) = 0;
    virtual ::ndk::ScopedAStatus getInterfaceHash(std::string* _aidl_return) = 0;
};

}  // namespace aidl::vendor::vuq::hardware::vpp
