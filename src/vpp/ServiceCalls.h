// SPDX-License-Identifier: Apache-2.0
// Calls into the VPP service. Private to src/.
#pragma once

#include <aidl/vendor/vuq/hardware/vpp/IVpp.h>
#include <aidl/vendor/vuq/hardware/vpp/IVppService.h>

#include <atomic>
#include <memory>
#include <vector>

namespace android {

namespace vpp = ::aidl::vendor::vuq::hardware::vpp;

// The only code that calls the service and its session. The outcome of a call is the result that
// the call writes. A call with a transport error writes no result and counts as a success, because
// the binder status is ignored. An in-process service allocates on the caller's thread; an
// allocation failure there is reported as VPP_ERR_NO_MEM.
//
// enable() sets the two pointers before the worker exists. disable() resets them after the worker
// has been joined, under the component's lock, which is also held while a buffer is queued. There
// must be a session for all operations except openSession(), hasSession() and reset().
class ServiceCalls {
  public:
    ServiceCalls(std::shared_ptr<vpp::IVppService>& service, std::shared_ptr<vpp::IVpp>& session)
        : mService(service), mSession(session) {}

    ServiceCalls(const ServiceCalls&) = delete;
    ServiceCalls& operator=(const ServiceCalls&) = delete;

    // Requests a new session from the service. Returns false if there is none.
    bool openSession();
    bool hasSession() const { return mSession != nullptr; }
    ::ndk::SpAIBinder sessionBinder() const { return mSession->asBinder(); }
    // Releases the session and the service. Either may be destroyed as a result.
    void reset();

    // The commands of the session. The interface (IVpp.aidl) documents them. An open() that begins
    // after close() fails without a call: disable() may overtake a start that is still under way on
    // another thread, and a session that is opened again would be open when it is released.
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
    std::atomic<bool> mClosed{false};
};

}  // namespace android
