// SPDX-License-Identifier: Apache-2.0
#include "host/vppd/ClientCallbacks.h"

namespace qoz::host::vppd {

using vpp::VppError;
using Ports = OutgoingCallback::Ports;

ndk::ScopedAStatus ClientCallbacks::post(OutgoingCallback callback, VppError* result) {
    mOutbox->post(std::move(callback));
    *result = VppError::VPP_OK;
    return Status::ok();
}

ndk::ScopedAStatus ClientCallbacks::eventDrainDone(VppError* result) {
    return post({.method = "EventDrainDone"}, result);
}

ndk::ScopedAStatus ClientCallbacks::eventError(VppError error, VppError* result) {
    return post({.method = "EventError", .argument = static_cast<int32_t>(error), .completes = {}},
                result);
}

ndk::ScopedAStatus ClientCallbacks::eventFlushDone(const vpp::FlushDone& done, VppError* result) {
    const bool isInput = done.port == static_cast<int32_t>(vpp::VppPort::INPUT);
    return post({.method = "EventFlushDone",
                 .argument = done.port,
                 .ports = isInput ? Ports::kInput : Ports::kOutput},
                result);
}

ndk::ScopedAStatus ClientCallbacks::eventReconfigDone(const vpp::ReconfigDone& done,
                                                      VppError* result) {
    return post({.method = "EventReconfigDone", .argument = done.status}, result);
}

ndk::ScopedAStatus ClientCallbacks::inputBufferDone(const vpp::VppBuffer& buffer,
                                                    VppError* result) {
    return post({.method = "InputBufferDone",
                 .argument = toBus(buffer),
                 .ports = Ports::kInput,
                 .completes = Completion::Buffer},
                result);
}

ndk::ScopedAStatus ClientCallbacks::outputBufferDone(const vpp::VppBuffer& buffer,
                                                     VppError* result) {
    return post({.method = "OutputBufferDone",
                 .argument = toBus(buffer),
                 .ports = Ports::kOutput,
                 .completes = Completion::Buffer},
                result);
}

}  // namespace qoz::host::vppd
