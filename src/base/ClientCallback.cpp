// SPDX-License-Identifier: Apache-2.0
#include "base/ClientCallback.h"

#include <utility>

namespace android {
namespace {

// One call to a client that this thread is within, and those around it: a callback of one component
// may call another component, which calls its own client.
class CallScope;
thread_local const CallScope* tInnermost = nullptr;

class CallScope {
  public:
    explicit CallScope(const ClientCallback* caller) : mCaller(caller), mAround(tInnermost) {
        tInnermost = this;
    }
    ~CallScope() { tInnermost = mAround; }

    CallScope(const CallScope&) = delete;
    CallScope& operator=(const CallScope&) = delete;

    // Looks through all calls that this thread is within; usually there is none.
    static bool isWithin(const ClientCallback* caller) {
        for (const CallScope* scope = tInnermost; scope != nullptr; scope = scope->mAround) {
            if (scope->mCaller == caller) return true;
        }
        return false;
    }

  private:
    const ClientCallback* const mCaller;
    const CallScope* const mAround;
};

}  // namespace

// The pointer is plain, but a callback of the previous session may still read it while enable()
// writes it. (By the builtins: std::atomic_ref is not in every library that this is built with.)
IQOZCallback* ClientCallback::get() const {
    return __atomic_load_n(&mCallback, __ATOMIC_ACQUIRE);
}

void ClientCallback::set(IQOZCallback* callback) {
    __atomic_store_n(&mCallback, callback, __ATOMIC_RELEASE);
}

// The callback may be null: a client that wants no buffers back is allowed. No lock is held here,
// and none is taken: the client may take locks of its own.
void ClientCallback::giveBack(uint32_t port, int32_t slot, uint32_t valid,
                              uint64_t timestamp) const {
    IQOZCallback* const callback = get();
    if (callback == nullptr) return;
    const CallScope scope(this);
    callback->onBufferDone(port, slot, valid, timestamp);
}

void ClientCallback::configChanged(std::set<uint32_t> changes) const {
    IQOZCallback* const callback = get();
    if (callback == nullptr) return;
    const CallScope scope(this);
    callback->onConfigChanged(std::move(changes));
}

bool ClientCallback::isOnThisThread() const {
    return CallScope::isWithin(this);
}

}  // namespace android
