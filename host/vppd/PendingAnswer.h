// SPDX-License-Identifier: Apache-2.0
// The answer to a call that came over the bus.
#pragma once

#include <memory>
#include <utility>

#include "host/vppd/AnswerGate.h"
#include "host/vppd/Names.h"

namespace qoz::host::vppd {

// Answers one call, once; further answers are ignored. The destructor answers with an error if
// nothing else has, so that a call that is dropped is answered too. May be used on any thread, but
// only on one at a time.
//
// It may outlive the object that was called, whose gate it shares: after that object has left the
// bus, an error is sent instead of a value. If the caller has left the bus, the answer is
// discarded.
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
    // Answers with an error instead of a value.
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
            // The caller or the bus has gone.
        }
        mResult = sdbus::Result<Value>();  // releases the call message and its descriptors
    }

    std::shared_ptr<AnswerGate> mGate;  // null once the answer has been given
    sdbus::Result<Value> mResult;
};

}  // namespace qoz::host::vppd
