// SPDX-License-Identifier: Apache-2.0
// The callback object of a client in another process, for the session to call.
#pragma once

#include <aidl/vendor/vuq/hardware/vpp/BnVppCallbacks.h>

#include <memory>
#include <utility>

#include "host/vppd/CallbackOutbox.h"
#include "host/vppd/Records.h"

namespace qoz::host::vppd {

// Every call succeeds at once and is passed to the outbox, which sends it to the client. Owned by
// the session, which releases it when the session ends.
class ClientCallbacks final : public vpp::BnVppCallbacks {
  public:
    explicit ClientCallbacks(std::shared_ptr<CallbackOutbox> outbox) : mOutbox(std::move(outbox)) {}

    using Status = ndk::ScopedAStatus;
    Status eventDrainDone(vpp::VppError* result) override;
    Status eventError(vpp::VppError error, vpp::VppError* result) override;
    Status eventFlushDone(const vpp::FlushDone& done, vpp::VppError* result) override;
    Status eventReconfigDone(const vpp::ReconfigDone& done, vpp::VppError* result) override;
    Status inputBufferDone(const vpp::VppBuffer& buffer, vpp::VppError* result) override;
    Status outputBufferDone(const vpp::VppBuffer& buffer, vpp::VppError* result) override;

  private:
    Status post(OutgoingCallback callback, vpp::VppError* result);

    const std::shared_ptr<CallbackOutbox> mOutbox;
};

}  // namespace qoz::host::vppd
