// SPDX-License-Identifier: Apache-2.0
// An answer that is owed to a caller on the bus.
#pragma once

#include <memory>
#include <utility>

#include "host/vppd/Bus.h"
#include "host/vppd/Names.h"

namespace qoz::host::vppd {

// Given once, on any thread; by the end of the object at the latest, so that a call that is dropped
// is answered too. It keeps the connection meanwhile. When the caller is gone, nothing happens.
template <typename Value>
class PendingAnswer {
  public:
    PendingAnswer(std::shared_ptr<Bus> bus, sdbus::Result<Value>&& result)
        : mBus(std::move(bus)), mResult(std::move(result)) {}
    PendingAnswer(PendingAnswer&& other) noexcept = default;
    PendingAnswer& operator=(PendingAnswer&&) = delete;
    ~PendingAnswer() { fail(kDeadObject, "the call has a transport error"); }

    void give(const Value& value) {
        answer([&] { mResult.returnResults(value); });
    }
    // Instead of a value.
    void fail(const char* error, const char* why) {
        answer([&] { mResult.returnError(sdbus::Error(error, why)); });
    }
    void deny() { fail(kAccessDenied, "this object serves another connection"); }

  private:
    template <typename Send>
    void answer(const Send& send) {
        const std::shared_ptr<Bus> bus = std::exchange(mBus, nullptr);
        if (bus == nullptr) return;
        try {
            send();
        } catch (const sdbus::Error&) {
            // The caller, or the bus, is gone.
        }
        mResult = sdbus::Result<Value>();  // with the caller's message, and the descriptors in it
    }

    std::shared_ptr<Bus> mBus;  // null once the answer has been given
    sdbus::Result<Value> mResult;
};

}  // namespace qoz::host::vppd
