// SPDX-License-Identifier: Apache-2.0
// A callback object that passes each returned buffer to one function.
#pragma once

#include <qoz/VppComponent.h>

#include <functional>
#include <set>
#include <utility>

namespace qoz::client {

// For a client that needs no thread and no ledger of its own. Without a function, returned buffers
// are ignored. The component calls the function on the thread that returns the buffer, and several
// threads may call it at once: this class takes no lock, so the function must be thread-safe.
class DoneCallback final : public android::IQOZCallback {
  public:
    using Done =
        std::function<void(uint32_t port, int32_t slot, uint32_t valid, uint64_t timestamp)>;

    DoneCallback() = default;
    explicit DoneCallback(Done done) : mDone(std::move(done)) {}

    void onBufferDone(uint32_t port, int32_t slot, uint32_t valid, uint64_t timestamp) override {
        if (mDone) mDone(port, slot, valid, timestamp);
    }
    void onConfigChanged(std::set<uint32_t>) override {}

  private:
    const Done mDone;
};

}  // namespace qoz::client
