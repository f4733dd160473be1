// SPDX-License-Identifier: Apache-2.0
// An answer that is owed to a caller on the bus.
#pragma once

#include <memory>
#include <utility>

#include "host/vppd/AnswerGate.h"
#include "host/vppd/Names.h"

namespace qoz::host::vppd {

// Given once, on any thread; by the end of this object at the latest, so that a call that is
// dropped is answered too. It may outlive the object on the bus that was called, whose gate it
// shares: a value that comes after that object has left becomes an error. When the caller is gone,
// nothing happens.
template <typename Value>
class PendingAnswer {
  public:
    PendingAnswer(std::shared_ptr<AnswerGate> gate, sdbus::Result<Value>&& result)
        : mGate(std::move(gate)), mResult(std::move(result)) {}
    PendingAnswer(PendingAnswer&& other) noexcept = default;
    PendingAnswer& operator=(PendingAnswer&&) = delete;
    ~PendingAnswer() { fail(kDeadObject, "the call has a transport error"); }

    void give(const Value& value) {
        answer([&](AnswerGate& gate) {
            if (gate.pass([&] { mResult.returnResults(value); })) return;
            mResult.returnError(sdbus::Error(kDeadObject, "the object has left the bus"));
        });
    }
    // Instead of a value.
    void fail(const char* error, const char* why) {
        answer([&](AnswerGate&) { mResult.returnError(sdbus::Error(error, why)); });
    }
    void deny() { fail(kAccessDenied, "this object serves another connection"); }

  private:
    template <typename Send>
    void answer(const Send& send) {
        const std::shared_ptr<AnswerGate> gate = std::exchange(mGate, nullptr);
        if (gate == nullptr) return;
        try {
            send(*gate);
        } catch (const sdbus::Error&) {
            // The caller, or the bus, is gone.
        }
        mResult = sdbus::Result<Value>();  // with the caller's message, and the descriptors in it
    }

    std::shared_ptr<AnswerGate> mGate;  // null once the answer has been given
    sdbus::Result<Value> mResult;
};

}  // namespace qoz::host::vppd
