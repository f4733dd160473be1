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

// One post-processing session. The client sets its controls and ports, opens it, queues frames on
// the input port and empty buffers on the output port, and gets both back through IVppCallbacks. A
// result says whether the session took a command; flush, reconfigure and drain are finished later,
// which an event says. Operations without a comment are not called by this library.
class IVpp : public ::ndk::ICInterface {
  public:
    static const char* descriptor;
    static inline const int32_t version = 1;
    static inline const std::string hash = "3a7b54438275496adb8572f88e80b98b71f9801b";

    IVpp();
    ~IVpp() override;

    // Null when the binder is null or is not this interface.
    static std::shared_ptr<IVpp> fromBinder(const ::ndk::SpAIBinder& binder);

    // Ends the processing. Buffers that the session still has are not returned.
    virtual ::ndk::ScopedAStatus close(VppError* _aidl_return) = 0;
    // Has everything that is queued processed and returned, then IVppCallbacks.eventDrainDone().
    virtual ::ndk::ScopedAStatus drain(VppError* _aidl_return) = 0;
    // Has one port return its buffers unprocessed, then IVppCallbacks.eventFlushDone() for that
    // port.
    virtual ::ndk::ScopedAStatus flush(VppPort in_port, VppError* _aidl_return) = 0;
    virtual ::ndk::ScopedAStatus getParameter(VppPort in_port, VppPortParam* out_param,
                                              VppError* _aidl_return) = 0;
    // Names the object that the session reports to. Once a session, before anything else. The
    // library passes 0 for flags.
    virtual ::ndk::ScopedAStatus initSession(int32_t in_flags,
                                             const std::shared_ptr<IVppCallbacks>& in_callbacks,
                                             VppError* _aidl_return) = 0;
    // Starts processing with the controls and ports set before.
    virtual ::ndk::ScopedAStatus open(VppError* _aidl_return) = 0;
    // Hands one buffer over. The session owns the descriptors of the record that it receives; the
    // buffer is the session's until it comes back under the same cookie.
    virtual ::ndk::ScopedAStatus queueBuf(VppPort in_port, const VppBuffer& in_buffer,
                                          VppError* _aidl_return) = 0;
    // Has an open session go on at other port sizes, then IVppCallbacks.eventReconfigDone(). Asked
    // for when both ports are empty: after a flush.
    virtual ::ndk::ScopedAStatus reconfigure(const VppPortParam& in_input,
                                             const VppPortParam& in_output,
                                             VppError* _aidl_return) = 0;
    virtual ::ndk::ScopedAStatus resetStatistics(VppError* _aidl_return) = 0;
    // Upscaling without frame-rate conversion.
    virtual ::ndk::ScopedAStatus setCtrlAis(const VppCtrlAis& in_ctrl, VppError* _aidl_return) = 0;
    virtual ::ndk::ScopedAStatus setCtrlBrightness(int32_t in_value, VppError* _aidl_return) = 0;
    virtual ::ndk::ScopedAStatus setCtrlColor(int32_t in_value, VppError* _aidl_return) = 0;
    virtual ::ndk::ScopedAStatus setCtrlContrast(int32_t in_value, VppError* _aidl_return) = 0;
    virtual ::ndk::ScopedAStatus setCtrlDenoise(int32_t in_value, VppError* _aidl_return) = 0;
    // Frame-rate conversion: all segments that are to be known, in place of those sent before.
    virtual ::ndk::ScopedAStatus setCtrlFrc(const std::vector<VppCtrlFrcSegment>& in_segments,
                                            VppError* _aidl_return) = 0;
    virtual ::ndk::ScopedAStatus setCtrlHue(int32_t in_value, VppError* _aidl_return) = 0;
    virtual ::ndk::ScopedAStatus setCtrlSaturation(int32_t in_value, VppError* _aidl_return) = 0;
    virtual ::ndk::ScopedAStatus setCtrlSharpness(int32_t in_value, VppError* _aidl_return) = 0;
    virtual ::ndk::ScopedAStatus setCtrlToneMap(int32_t in_value, VppError* _aidl_return) = 0;
    // What the session is used for; the library's sessions are of mode 2.
    virtual ::ndk::ScopedAStatus setCtrlVppMode(int32_t in_mode, VppError* _aidl_return) = 0;
    // The layout of the frames on one port; before open().
    virtual ::ndk::ScopedAStatus setParameter(VppPort in_port, const VppPortParam& in_param,
                                              VppError* _aidl_return) = 0;
    virtual ::ndk::ScopedAStatus setPriority(int32_t in_value, VppError* _aidl_return) = 0;
    virtual ::ndk::ScopedAStatus setQuality(int32_t in_value, VppError* _aidl_return) = 0;
    virtual ::ndk::ScopedAStatus setStatistics(int32_t in_value, VppError* _aidl_return) = 0;
    virtual ::ndk::ScopedAStatus suspend(VppError* _aidl_return) = 0;
    // Ends the session, which lets its callback object go. Called after close(), whatever that
    // answered.
    virtual ::ndk::ScopedAStatus terminateSession() = 0;

    virtual ::ndk::ScopedAStatus getInterfaceVersion(int32_t* _aidl_return) = 0;
    virtual ::ndk::ScopedAStatus getInterfaceHash(std::string* _aidl_return) = 0;
};

}  // namespace aidl::vendor::vuq::hardware::vpp
