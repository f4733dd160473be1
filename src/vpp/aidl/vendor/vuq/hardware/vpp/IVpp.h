// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <aidl/vendor/vuq/hardware/vpp/IVppCallbacks.h>
#include <aidl/vendor/vuq/hardware/vpp/VppBuffer.h>
#include <aidl/vendor/vuq/hardware/vpp/VppCtrlAis.h>
#include <aidl/vendor/vuq/hardware/vpp/VppCtrlFrcSegment.h>
#include <aidl/vendor/vuq/hardware/vpp/VppError.h>
#include <aidl/vendor/vuq/hardware/vpp/VppPort.h>
#include <aidl/vendor/vuq/hardware/vpp/VppPortParam.h>
#include <android/binder_interface_utils.h>

#include <cstdint>
#include <memory>
#include <string>
#include <vector>

namespace aidl::vendor::vuq::hardware::vpp {

// One post-processing session.
class IVpp : public ::ndk::ICInterface {
  public:
    static const char* descriptor;
    static inline const int32_t version = 1;
    static inline const std::string hash = "3a7b54438275496adb8572f88e80b98b71f9801b";

    IVpp();
    ~IVpp() override;

    // Null when the binder is null or is not this interface.
    static std::shared_ptr<IVpp> fromBinder(const ::ndk::SpAIBinder& binder);

    virtual ::ndk::ScopedAStatus close(VppError* _aidl_return) = 0;
    virtual ::ndk::ScopedAStatus drain(VppError* _aidl_return) = 0;
    virtual ::ndk::ScopedAStatus flush(VppPort in_port, VppError* _aidl_return) = 0;
    virtual ::ndk::ScopedAStatus getParameter(VppPort in_port, VppPortParam* out_param,
                                              VppError* _aidl_return) = 0;
    virtual ::ndk::ScopedAStatus initSession(int32_t in_flags,
                                             const std::shared_ptr<IVppCallbacks>& in_callbacks,
                                             VppError* _aidl_return) = 0;
    virtual ::ndk::ScopedAStatus open(VppError* _aidl_return) = 0;
    virtual ::ndk::ScopedAStatus queueBuf(VppPort in_port, const VppBuffer& in_buffer,
                                          VppError* _aidl_return) = 0;
    virtual ::ndk::ScopedAStatus reconfigure(const VppPortParam& in_input,
                                             const VppPortParam& in_output,
                                             VppError* _aidl_return) = 0;
    virtual ::ndk::ScopedAStatus resetStatistics(VppError* _aidl_return) = 0;
    virtual ::ndk::ScopedAStatus setCtrlAis(const VppCtrlAis& in_ctrl, VppError* _aidl_return) = 0;
    virtual ::ndk::ScopedAStatus setCtrlBrightness(int32_t in_value, VppError* _aidl_return) = 0;
    virtual ::ndk::ScopedAStatus setCtrlColor(int32_t in_value, VppError* _aidl_return) = 0;
    virtual ::ndk::ScopedAStatus setCtrlContrast(int32_t in_value, VppError* _aidl_return) = 0;
    virtual ::ndk::ScopedAStatus setCtrlDenoise(int32_t in_value, VppError* _aidl_return) = 0;
    virtual ::ndk::ScopedAStatus setCtrlFrc(const std::vector<VppCtrlFrcSegment>& in_segments,
                                            VppError* _aidl_return) = 0;
    virtual ::ndk::ScopedAStatus setCtrlHue(int32_t in_value, VppError* _aidl_return) = 0;
    virtual ::ndk::ScopedAStatus setCtrlSaturation(int32_t in_value, VppError* _aidl_return) = 0;
    virtual ::ndk::ScopedAStatus setCtrlSharpness(int32_t in_value, VppError* _aidl_return) = 0;
    virtual ::ndk::ScopedAStatus setCtrlToneMap(int32_t in_value, VppError* _aidl_return) = 0;
    virtual ::ndk::ScopedAStatus setCtrlVppMode(int32_t in_mode, VppError* _aidl_return) = 0;
    virtual ::ndk::ScopedAStatus setParameter(VppPort in_port, const VppPortParam& in_param,
                                              VppError* _aidl_return) = 0;
    virtual ::ndk::ScopedAStatus setPriority(int32_t in_value, VppError* _aidl_return) = 0;
    virtual ::ndk::ScopedAStatus setQuality(int32_t in_value, VppError* _aidl_return) = 0;
    virtual ::ndk::ScopedAStatus setStatistics(int32_t in_value, VppError* _aidl_return) = 0;
    virtual ::ndk::ScopedAStatus suspend(VppError* _aidl_return) = 0;
    virtual ::ndk::ScopedAStatus terminateSession() = 0;

    virtual ::ndk::ScopedAStatus getInterfaceVersion(int32_t* _aidl_return) = 0;
    virtual ::ndk::ScopedAStatus getInterfaceHash(std::string* _aidl_return) = 0;
};

}  // namespace aidl::vendor::vuq::hardware::vpp
