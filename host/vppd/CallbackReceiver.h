// SPDX-License-Identifier: Apache-2.0
// The client's callback object, as the session's process calls it.
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

// Exported from construction to destruction, for one session of the service whose connection is
// named; a call of any other is refused. Calls arrive on the reading thread, are carried out on
// binder threads and answered when they have returned.
class CallbackReceiver final : private KeepsBus,
                               public sdbus::AdaptorInterfaces<::org::qoz::VppCallbacks1_adaptor> {
  public:
    // Throws std::system_error when there are no threads to be had.
    CallbackReceiver(std::shared_ptr<Bus> bus, std::string service,
                     std::shared_ptr<vpp::IVppCallbacks> callbacks);

    // Lets go of the client's object on the calling thread, which may destroy the client.
    ~CallbackReceiver();

    CallbackReceiver(const CallbackReceiver&) = delete;
    CallbackReceiver& operator=(const CallbackReceiver&) = delete;

    // Waits for calls under way, at most until `end`, and not from within one; then leaves the bus.
    // No call is carried out any more; one that is still under way is answered with an error.
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

    bool admits(PendingAnswer<int32_t>& answer);
    template <typename Call>
    void carryOut(vppservice::SerialExecutor& executor, Answer&& answer, Call call);
    template <typename Call>
    void carryOutWith(vppservice::SerialExecutor& executor, Answer&& answer, BusBuffer&& buffer,
                      Call call);

    const std::shared_ptr<AnswerGate> mGate = std::make_shared<AnswerGate>(bus);
    const std::string mService;
    const std::shared_ptr<vpp::IVppCallbacks> mCallbacks;
    Refusals mRefusals;  // of the reading thread
    // A session calls about both ports at once; a client that is slow to take a source back holds
    // no output up.
    vppservice::SerialExecutor mInputExecutor;
    vppservice::SerialExecutor mOutputExecutor;
};

}  // namespace qoz::host::vppd
