#include "host/vppd/CallbackReceiver.h"

#include "host/vppd/Names.h"

#include <android/log.h>
#include <host/platform/BinderThreads.h>

#include <atomic>
#include <utility>

namespace qoz::host::vppd {
namespace {

using vpp::IVppCallbacks;
using vpp::VppError;

// The receiver whose call this binder thread is carrying out.
thread_local const void* tCarriedFor = nullptr;

std::string newPath() {
    static std::atomic<uint64_t> made{0};
    return kCallbacksFolder + std::to_string(made.fetch_add(1, std::memory_order_relaxed));
}

// Keeps the connection for as long as the answer is owed.
struct Debt {
    std::shared_ptr<Bus> bus;
    sdbus::Result<int32_t> answer;

    void pay(VppError error) const {
        try {
            answer.returnResults(static_cast<int32_t>(error));
        } catch (const sdbus::Error&) {
            // Who asked is gone.
        }
    }
};

}  // namespace

CallbackReceiver::CallbackReceiver(std::shared_ptr<Bus> connection,
                                   std::shared_ptr<IVppCallbacks> callbacks)
    : KeepsBus{std::move(connection)},
      AdaptorInterfaces(bus->connection(), newPath()),
      mCallbacks(std::move(callbacks)) {
    registerAdaptor();
}

CallbackReceiver::~CallbackReceiver() {
    unregisterAdaptor();
    const auto limit = tCarriedFor == this ? std::chrono::milliseconds(0) : kCallLimit;
    mInputExecutor.stop(limit);
    mOutputExecutor.stop(limit);
}

template <typename Call>
void CallbackReceiver::carryOut(vppservice::SerialExecutor& executor, Answer&& answer, Call call) {
    const auto debt = std::make_shared<Debt>(Debt{bus, std::move(answer)});
    executor.post([callbacks = mCallbacks, debt, call = std::move(call), me = this] {
        VppError error = VppError::VPP_OK;
        callOnBinderThread([&] {
            tCarriedFor = me;
            call(*callbacks, &error);
            tCarriedFor = nullptr;
        });
        debt->pay(error);
    });
}

template <typename Call>
void CallbackReceiver::carryOutWith(vppservice::SerialExecutor& executor, Answer&& answer,
                                    BusBuffer&& sent, Call call) {
    std::optional<vpp::VppBuffer> buffer = fromBus(std::move(sent));
    if (!buffer) {
        __android_log_print(ANDROID_LOG_ERROR, "vppd", "dropped a buffer that makes no sense");
        Debt{bus, std::move(answer)}.pay(VppError::VPP_ERR_PARAM);
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
    carryOutWith(mInputExecutor, std::move(answer), std::move(buffer),
                 [](IVppCallbacks& c, const vpp::VppBuffer& b, VppError* error) {
                     c.inputBufferDone(b, error);
                 });
}

void CallbackReceiver::OutputBufferDone(Answer&& answer, BusBuffer buffer) {
    carryOutWith(mOutputExecutor, std::move(answer), std::move(buffer),
                 [](IVppCallbacks& c, const vpp::VppBuffer& b, VppError* error) {
                     c.outputBufferDone(b, error);
                 });
}

}  // namespace qoz::host::vppd
