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

// One post-processing session. The client sets the controls and ports, opens the session, and
// queues frames on the input port and empty buffers on the output port. The session returns both
// through IVppCallbacks. A result says whether the session accepted a command. flush, reconfigure
// and drain complete later, with an event. The library does not call the operations without a
// comment.
class IVpp : public ::ndk::ICInterface {
  public:
    static const char* descriptor;
    static inline const int32_t version = 1;
    static inline const std::string hash = "3a7b54438275496adb8572f88e80b98b71f9801b";

    IVpp();
    ~IVpp() override;

    // Null when the binder is null or is not this interface.
    static std::shared_ptr<IVpp> fromBinder(const ::ndk::SpAIBinder& binder);

    // Ends processing. The session does not return the buffers that it still holds.
    virtual ::ndk::ScopedAStatus close(VppError* _aidl_return) = 0;
    // Processes and returns all queued buffers, then calls IVppCallbacks.eventDrainDone().
    virtual ::ndk::ScopedAStatus drain(VppError* _aidl_return) = 0;
    // Returns the buffers of one port unprocessed, then calls IVppCallbacks.eventFlushDone() for
    // that port.
    virtual ::ndk::ScopedAStatus flush(VppPort in_port, VppError* _aidl_return) = 0;
    virtual ::ndk::ScopedAStatus getParameter(VppPort in_port, VppPortParam* out_param,
                                              VppError* _aidl_return) = 0;
    // Sets the object that receives the session's events. Called once for each session, before any
    // other operation. The library passes 0 for flags.
    virtual ::ndk::ScopedAStatus initSession(int32_t in_flags,
                                             const std::shared_ptr<IVppCallbacks>& in_callbacks,
                                             VppError* _aidl_return) = 0;
    // Starts processing with the current controls and port layouts.
    virtual ::ndk::ScopedAStatus open(VppError* _aidl_return) = 0;
    // Queues one buffer. The session owns the descriptors in the record that it receives, and uses
    // the buffer until it returns it with the same cookie.
    virtual ::ndk::ScopedAStatus queueBuf(VppPort in_port, const VppBuffer& in_buffer,
                                          VppError* _aidl_return) = 0;
    // Changes the port layouts of an open session, then calls IVppCallbacks.eventReconfigDone().
    // The library calls it after a flush, when both ports are empty.
    virtual ::ndk::ScopedAStatus reconfigure(const VppPortParam& in_input,
                                             const VppPortParam& in_output,
                                             VppError* _aidl_return) = 0;
    virtual ::ndk::ScopedAStatus resetStatistics(VppError* _aidl_return) = 0;
    // Sets upscaling without frame-rate conversion.
    virtual ::ndk::ScopedAStatus setCtrlAis(const VppCtrlAis& in_ctrl, VppError* _aidl_return) = 0;
    virtual ::ndk::ScopedAStatus setCtrlBrightness(int32_t in_value, VppError* _aidl_return) = 0;
    virtual ::ndk::ScopedAStatus setCtrlColor(int32_t in_value, VppError* _aidl_return) = 0;
    virtual ::ndk::ScopedAStatus setCtrlContrast(int32_t in_value, VppError* _aidl_return) = 0;
    virtual ::ndk::ScopedAStatus setCtrlDenoise(int32_t in_value, VppError* _aidl_return) = 0;
    // Sets frame-rate conversion. The segments replace all segments that were sent before.
    virtual ::ndk::ScopedAStatus setCtrlFrc(const std::vector<VppCtrlFrcSegment>& in_segments,
                                            VppError* _aidl_return) = 0;
    virtual ::ndk::ScopedAStatus setCtrlHue(int32_t in_value, VppError* _aidl_return) = 0;
    virtual ::ndk::ScopedAStatus setCtrlSaturation(int32_t in_value, VppError* _aidl_return) = 0;
    virtual ::ndk::ScopedAStatus setCtrlSharpness(int32_t in_value, VppError* _aidl_return) = 0;
    virtual ::ndk::ScopedAStatus setCtrlToneMap(int32_t in_value, VppError* _aidl_return) = 0;
    // Sets the purpose of the session. The library uses mode 2.
    virtual ::ndk::ScopedAStatus setCtrlVppMode(int32_t in_mode, VppError* _aidl_return) = 0;
    // Sets the layout of the frames on one port. Called before open().
    virtual ::ndk::ScopedAStatus setParameter(VppPort in_port, const VppPortParam& in_param,
                                              VppError* _aidl_return) = 0;
    virtual ::ndk::ScopedAStatus setPriority(int32_t in_value, VppError* _aidl_return) = 0;
    virtual ::ndk::ScopedAStatus setQuality(int32_t in_value, VppError* _aidl_return) = 0;
    virtual ::ndk::ScopedAStatus setStatistics(int32_t in_value, VppError* _aidl_return) = 0;
    virtual ::ndk::ScopedAStatus suspend(VppError* _aidl_return) = 0;
    // Ends the session, which releases its callback object. Called after close(), whatever its
    // result.
    virtual ::ndk::ScopedAStatus terminateSession() = 0;

    virtual ::ndk::ScopedAStatus getInterfaceVersion(int32_t* _aidl_return) = 0;
    virtual ::ndk::ScopedAStatus getInterfaceHash(std::string* _aidl_return) = 0;
};

}  // namespace aidl::vendor::vuq::hardware::vpp
