// SPDX-License-Identifier: Apache-2.0
#include "host/vppd/CallbackReceiver.h"

#include <host/platform/BinderThreads.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <optional>
#include <utility>

#include "host/vppd/Names.h"

namespace qoz::host::vppd {
namespace {

using vpp::IVppCallbacks;
using vpp::VppError;

// The receiver whose call this binder thread is carrying out, or null.
thread_local const void* tReceiver = nullptr;

// Returns an object path that no other receiver of this process has had.
std::string newPath() {
    static std::atomic<uint64_t> made{0};
    return kCallbacksFolder + std::to_string(made.fetch_add(1, std::memory_order_relaxed));
}

}  // namespace

CallbackReceiver::CallbackReceiver(std::shared_ptr<Bus> connection, std::string service,
                                   std::shared_ptr<IVppCallbacks> callbacks)
    : KeepsBus{std::move(connection)},
      AdaptorInterfaces(bus->connection(), newPath()),
      mService(std::move(service)),
      mCallbacks(std::move(callbacks)) {
    registerAdaptor();
}

CallbackReceiver::~CallbackReceiver() {
    stop(std::chrono::steady_clock::now());
}

// Stops the executors before it closes the gate, so that a call that ends in time is answered with
// its value.
void CallbackReceiver::stop(SteadyTime end) {
    for (vppservice::SerialExecutor* executor : {&mInputExecutor, &mOutputExecutor}) {
        const auto left = std::chrono::duration_cast<std::chrono::milliseconds>(
            end - std::chrono::steady_clock::now());
        const bool within = tReceiver == this;
        executor->stop(within ? std::chrono::milliseconds(0)
                              : std::max(left, std::chrono::milliseconds(0)));
    }
    mGate->close();
    unregisterAdaptor();
}

bool CallbackReceiver::admits(PendingAnswer<int32_t>& answer) {
    const std::string caller = getObject().getCurrentlyProcessedMessage()->getSender();
    if (caller == mService) return true;
    mRefusals.log("callback", caller.c_str(), "the session belongs to another connection");
    answer.deny();
    return false;
}

// Hands a call to an executor. The executor's thread waits while a binder thread carries out the
// call, and then answers it.
template <typename Call>
void CallbackReceiver::carryOut(vppservice::SerialExecutor& executor, Answer&& result, Call call) {
    const auto answer = std::make_shared<PendingAnswer<int32_t>>(mGate, std::move(result));
    if (!admits(*answer)) return;
    executor.post([callbacks = mCallbacks, answer, call = std::move(call), me = this] {
        VppError error = VppError::VPP_OK;
        callOnBinderThread([&] {
            tReceiver = me;
            call(*callbacks, &error);
            tReceiver = nullptr;
        });
        answer->give(static_cast<int32_t>(error));
    });
}

// Like carryOut(), for a callback with a buffer. A record that is not valid is refused.
template <typename Call>
void CallbackReceiver::carryOutBuffer(vppservice::SerialExecutor& executor, Answer&& answer,
                                      BusBuffer&& sent, Call call) {
    std::optional<vpp::VppBuffer> buffer = fromBus(std::move(sent));
    if (!buffer) {
        PendingAnswer refused(mGate, std::move(answer));
        if (!admits(refused)) return;
        mRefusals.log("callback", mService.c_str(), "the record is not valid");
        refused.give(static_cast<int32_t>(VppError::VPP_ERR_PARAM));
        return;
    }
    const auto shared = std::make_shared<vpp::VppBuffer>(std::move(*buffer));
    carryOut(executor, std::move(answer),
             [shared, call](IVppCallbacks& callbacks, VppError* error) {
                 call(callbacks, *shared, error);
             });
}

void CallbackReceiver::EventDrainDone(Answer&& answer) {
    carryOut(mOutputExecutor, std::move(answer),
             [](IVppCallbacks& c, VppError* error) { c.eventDrainDone(error); });
}

void CallbackReceiver::EventError(Answer&& answer, int32_t what) {
    carryOut(mOutputExecutor, std::move(answer), [what](IVppCallbacks& c, VppError* error) {
        c.eventError(static_cast<VppError>(what), error);
    });
}

void CallbackReceiver::EventFlushDone(Answer&& answer, int32_t port) {
    carryOut(mOutputExecutor, std::move(answer),
             [port](IVppCallbacks& c, VppError* error) { c.eventFlushDone({port}, error); });
}

void CallbackReceiver::EventReconfigDone(Answer&& answer, int32_t status) {
    carryOut(mOutputExecutor, std::move(answer),
             [status](IVppCallbacks& c, VppError* error) { c.eventReconfigDone({status}, error); });
}

void CallbackReceiver::InputBufferDone(Answer&& answer, BusBuffer buffer) {
    carryOutBuffer(mInputExecutor, std::move(answer), std::move(buffer),
                   [](IVppCallbacks& c, const vpp::VppBuffer& b, VppError* error) {
                       c.inputBufferDone(b, error);
                   });
}

void CallbackReceiver::OutputBufferDone(Answer&& answer, BusBuffer buffer) {
    carryOutBuffer(mOutputExecutor, std::move(answer), std::move(buffer),
                   [](IVppCallbacks& c, const vpp::VppBuffer& b, VppError* error) {
                       c.outputBufferDone(b, error);
                   });
}

}  // namespace qoz::host::vppd
