// SPDX-License-Identifier: Apache-2.0
// Calls into the VPP service. Private to src/.
#pragma once

#include <aidl/vendor/vuq/hardware/vpp/IVpp.h>
#include <aidl/vendor/vuq/hardware/vpp/IVppService.h>

#include <memory>
#include <vector>

namespace android {

namespace vpp = ::aidl::vendor::vuq::hardware::vpp;

// The one place that calls the service and its session. A call is judged by the result that it
// writes; one that fails in transport writes none and counts as a success, because the binder
// status is not looked at. (In-process services allocate on the caller's thread: an allocation
// failure there is the result VPP_ERR_NO_MEM.)
//
// enable() sets the two pointers before there is a worker, and disable() resets them after the
// worker has been joined, under the component's lock, which queueing holds as well. The operations
// below but for openSession() and reset() need a session.
class ServiceCalls {
  public:
    ServiceCalls(std::shared_ptr<vpp::IVppService>& service, std::shared_ptr<vpp::IVpp>& session)
        : mService(service), mSession(session) {}

    ServiceCalls(const ServiceCalls&) = delete;
    ServiceCalls& operator=(const ServiceCalls&) = delete;

    // Asks the service for a new session; false: there is none.
    bool openSession();
    bool hasSession() const { return mSession != nullptr; }
    ::ndk::SpAIBinder sessionBinder() const { return mSession->asBinder(); }
    // Lets go of session and service, which may end both.
    void reset();

    // The commands of the session, in the order of its interface, which says what they do.
    vpp::VppError close();
    vpp::VppError drain();
    vpp::VppError flush(vpp::VppPort port);
    vpp::VppError initSession(const std::shared_ptr<vpp::IVppCallbacks>& callbacks);
    vpp::VppError open();
    vpp::VppError queueBuf(vpp::VppPort port, const vpp::VppBuffer& buffer);
    vpp::VppError reconfigure(const vpp::VppPortParam& input, const vpp::VppPortParam& output);
    vpp::VppError setCtrlAis(const vpp::VppCtrlAis& ctrl);
    vpp::VppError setCtrlFrc(const std::vector<vpp::VppCtrlFrcSegment>& segments);
    vpp::VppError setCtrlVppMode(int32_t mode);
    vpp::VppError setParameter(vpp::VppPort port, const vpp::VppPortParam& param);
    void terminateSession();

  private:
    std::shared_ptr<vpp::IVppService>& mService;
    std::shared_ptr<vpp::IVpp>& mSession;
};

}  // namespace android
