// SPDX-License-Identifier: Apache-2.0
// Receives the callbacks of a session in another process, for a client in this one.
#pragma once

#include <memory>
#include <string>

#include "host/vppd/Bus.h"
#include "host/vppd/PendingAnswer.h"
#include "host/vppd/Records.h"
#include "host/vppd/Refusals.h"
#include "host/vppservice/SerialExecutor.h"
#include "vppd/VppAdaptor.h"

namespace qoz::host::vppd {

// An object on the bus that represents the client's callback object, from construction to stop().
// The RemoteSession owns it. Only the connection with the unique name `service` may call it. Calls
// arrive on the thread that reads the bus, are carried out on binder threads, and are answered when
// the client's function has returned.
class CallbackReceiver final : private KeepsBus,
                               public sdbus::AdaptorInterfaces<::org::qoz::VppCallbacks1_adaptor> {
  public:
    // Throws std::system_error if a thread cannot be created.
    CallbackReceiver(std::shared_ptr<Bus> bus, std::string service,
                     std::shared_ptr<vpp::IVppCallbacks> callbacks);

    // Releases the client's object on the calling thread, which may destroy the client.
    ~CallbackReceiver();

    CallbackReceiver(const CallbackReceiver&) = delete;
    CallbackReceiver& operator=(const CallbackReceiver&) = delete;

    // Discards the calls that wait and leaves the bus, so that no further call is carried out.
    // Waits until `end` at the latest for calls that are being carried out, but not if it is called
    // from within one. A call that has not returned by then is answered with an error.
    void stop(SteadyTime end);

    const std::string& path() const { return getObjectPath(); }

  private:
    using Answer = sdbus::Result<int32_t>;

    void EventDrainDone(Answer&& answer) override;
    void EventError(Answer&& answer, int32_t what) override;
    void EventFlushDone(Answer&& answer, int32_t port) override;
    void EventReconfigDone(Answer&& answer, int32_t status) override;
    void InputBufferDone(Answer&& answer, BusBuffer buffer) override;
    void OutputBufferDone(Answer&& answer, BusBuffer buffer) override;

    // Returns whether the caller may call this object. If not, answers with an error.
    bool admits(PendingAnswer<int32_t>& answer);
    template <typename Call>
    void carryOut(vppservice::SerialExecutor& executor, Answer&& answer, Call call);
    template <typename Call>
    void carryOutBuffer(vppservice::SerialExecutor& executor, Answer&& answer, BusBuffer&& buffer,
                        Call call);

    const std::shared_ptr<AnswerGate> mGate = std::make_shared<AnswerGate>(bus);
    const std::string mService;
    const std::shared_ptr<vpp::IVppCallbacks> mCallbacks;
    Refusals mRefusals;  // used only on the reading thread
    // Returned sources have a thread of their own, so that a client that is slow to take back a
    // source does not delay the outputs.
    vppservice::SerialExecutor mInputExecutor;
    vppservice::SerialExecutor mOutputExecutor;
};

}  // namespace qoz::host::vppd
