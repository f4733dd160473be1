// SPDX-License-Identifier: Apache-2.0
// The callback object of a client that only looks at what is returned: one function, or none for a
// client that looks at nothing. The function runs on whatever thread the component returns the
// buffer on, several at once; the object takes no lock.
#pragma once

#include <qoz/VppComponent.h>

#include <functional>
#include <set>
#include <utility>

namespace qoz::client {

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
