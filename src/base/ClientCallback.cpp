// SPDX-License-Identifier: Apache-2.0
#include "base/ClientCallback.h"

#include <utility>

namespace android {
namespace {

// One call to a client that is in progress on this thread. The calls form a list, because a
// callback of one component may call another component, which calls its own client.
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

    // Searches all calls in progress on this thread; usually there are none.
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

// The pointer is not atomic, but a callback of the previous session may still read it while
// enable() writes it. (The compiler's builtins are used because some of the supported standard
// libraries lack std::atomic_ref.)
IQOZCallback* ClientCallback::get() const {
    return __atomic_load_n(&mCallback, __ATOMIC_ACQUIRE);
}

void ClientCallback::set(IQOZCallback* callback) {
    __atomic_store_n(&mCallback, callback, __ATOMIC_RELEASE);
}

// A client may pass a null callback; its buffers are then not reported. The component holds no lock
// of its own during the call, so the client may take locks.
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
