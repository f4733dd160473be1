// SPDX-License-Identifier: Apache-2.0
#include "host/vppservice/CallbackDispatcher.h"

#include <host/platform/BinderThreads.h>

#include <utility>

namespace qoz::host::vppservice {
namespace {

// Limit for the callback under way when the dispatcher stops.
constexpr std::chrono::seconds kLongestCallback{2};
constexpr int64_t kIdBits =
    0x7FFEFFFF;  // bits of a cookie that identify the buffer; the others give its kind
constexpr int64_t kUnknownId = 4711;  // no client uses this id

// The dispatcher whose callback the current thread is carrying out. stop() must not wait for it.
thread_local const CallbackDispatcher* tDispatching = nullptr;

// The names under which faults are armed.
const char* nameOf(Callback::Kind kind) {
    switch (kind) {
        case Callback::Kind::InputDone:
            return "inputBufferDone";
        case Callback::Kind::OutputDone:
            return "outputBufferDone";
        case Callback::Kind::FlushDone:
            return "eventFlushDone";
        case Callback::Kind::ReconfigDone:
            return "eventReconfigDone";
        case Callback::Kind::DrainDone:
            break;
    }
    return "eventDrainDone";
}

// Makes the call. A status other than VPP_OK is passed as the event's own, or precedes the call as
// an eventError if the callback has no status.
void callOn(vpp::IVppCallbacks& client, const Callback& callback, VppError status) {
    VppError ignored = VppError::VPP_OK;
    if (status != VppError::VPP_OK && callback.kind != Callback::Kind::ReconfigDone) {
        client.eventError(status, &ignored);
    }
    switch (callback.kind) {
        case Callback::Kind::InputDone:
            client.inputBufferDone(callback.buffer, &ignored);
            break;
        case Callback::Kind::OutputDone:
            client.outputBufferDone(callback.buffer, &ignored);
            break;
        case Callback::Kind::FlushDone:
            client.eventFlushDone({static_cast<int32_t>(callback.port)}, &ignored);
            break;
        case Callback::Kind::ReconfigDone:
            client.eventReconfigDone({static_cast<int32_t>(status)}, &ignored);
            break;
        case Callback::Kind::DrainDone:
            client.eventDrainDone(&ignored);
            break;
    }
}

// Returns a callback of the same kind whose values no client has sent or can know.
Callback strayLike(const Callback& callback) {
    Callback stray;
    stray.kind = callback.kind;
    stray.port = static_cast<VppPort>(INT32_MIN);
    stray.buffer.cookie = -1;
    setUnsigned(stray.buffer.timestamp, UINT64_MAX);
    setUnsigned(stray.buffer.pixelFilledLen, UINT32_MAX);
    setUnsigned(stray.buffer.pixelAllocLen, UINT32_MAX);
    return stray;
}

}  // namespace

void CallbackDispatcher::start() {
    mWorker.start("vpp dispatcher", [self = shared_from_this()] { self->run(); });
}

void CallbackDispatcher::post(Callback callback) {
    const std::lock_guard lock(mLock);
    if (mStopped) return;
    mPosted.push_back(std::move(callback));
    mCond.notify_one();
}

void CallbackDispatcher::stop() {
    // These are destroyed after the lock is released: they own the client's object, whose
    // destructor may call the service.
    std::deque<Callback> posted;
    std::multimap<Clock::time_point, Delivery> delayed;
    std::shared_ptr<vpp::IVppCallbacks> client;
    {
        const std::lock_guard lock(mLock);
        mStopped = true;
        posted.swap(mPosted);
        delayed.swap(mDelayed);
        client.swap(mClient);
        mCond.notify_one();
    }
    const bool within = tDispatching == this;
    mWorker.finish(within ? std::chrono::milliseconds(0) : kLongestCallback);
}

// The body of the thread. A callback that a fault swaps waits here until the next one is delivered.
void CallbackDispatcher::run() {
    std::optional<Delivery> swapped;  // waits to follow the next callback
    for (Delivery delivery; next(&delivery); delivery = {}) {
        if (!isDue(&delivery)) continue;
        if (delivery.effect->manner == Manner::Swap && !swapped) {
            delivery.to.reset();  // so that stop() can release the client's object
            swapped = std::move(delivery);
            continue;
        }
        deliver(&delivery);
        if (!swapped) continue;
        swapped->to = delivery.to;
        deliver(&*swapped);
        swapped.reset();
    }
}

// Waits for the next callback. A delayed callback whose time has come precedes the queued ones.
// Returns false after stop().
bool CallbackDispatcher::next(Delivery* out) {
    std::unique_lock lock(mLock);
    const android::base::ScopedLockAssertion held(mLock);
    for (;;) {
        if (mStopped) return false;
        if (!mDelayed.empty() && mDelayed.begin()->first <= Clock::now()) {
            *out = std::move(mDelayed.extract(mDelayed.begin()).mapped());
            break;
        }
        if (!mPosted.empty()) {
            out->callback = std::move(mPosted.front());
            mPosted.pop_front();
            break;
        }
        if (mDelayed.empty()) {
            mCond.wait(lock);
        } else {
            mCond.wait_until(lock, mDelayed.begin()->first);
        }
    }
    out->to = mClient;
    return true;
}

// Returns true if this dispatcher must deliver the callback now. Otherwise the other dispatcher
// delivers it, or a fault delays it and it has been moved to mDelayed.
bool CallbackDispatcher::isDue(Delivery* delivery) {
    if (delivery->effect) return true;
    Callback& callback = delivery->callback;
    if (callback.barrier != nullptr && callback.barrier->fetch_sub(1) > 1) return false;
    if (callback.manner != Manner::Plain) {
        delivery->effect.emplace().manner = callback.manner;
        return true;
    }
    const FaultEffect effect = mFaults->effectOn(nameOf(callback.kind));
    delivery->effect = effect;
    if (effect.delay.count() <= 0) return true;
    const std::lock_guard lock(mLock);
    if (!mStopped) mDelayed.emplace(Clock::now() + effect.delay, std::move(*delivery));
    return false;
}

// Delivers the callback as its fault demands: not at all, changed, twice, or after a stray one.
void CallbackDispatcher::deliver(Delivery* delivery) const {
    const FaultEffect& effect = *delivery->effect;
    if (effect.lost || effect.manner == Manner::Drop) return;
    VppBuffer& buffer = delivery->callback.buffer;
    if (effect.answer && delivery->callback.kind == Callback::Kind::OutputDone) {
        buffer.pixelFilledLen = 0;
        buffer.timestamp = 0;
    }
    if (effect.manner == Manner::Unknown) buffer.cookie = (buffer.cookie & ~kIdBits) | kUnknownId;
    if (effect.manner == Manner::Stray) {
        call(*delivery->to, strayLike(delivery->callback), static_cast<VppError>(INT32_MIN));
    }
    const int times = effect.manner == Manner::Twice ? 2 : 1;
    for (int i = 0; i < times; ++i) {
        call(*delivery->to, delivery->callback, effect.answer.value_or(VppError::VPP_OK));
    }
}

// Has a binder thread make the call, or the client's own waiting thread if `within` is set, and
// waits until the call returns.
void CallbackDispatcher::call(vpp::IVppCallbacks& to, const Callback& callback,
                              VppError status) const {
    const auto work = [&] {
        tDispatching = this;
        callOn(to, callback, status);
        tDispatching = nullptr;
    };
    if (callback.within == nullptr) return callOnBinderThread(work);
    std::packaged_task<void()> nested(work);
    const auto made = nested.get_future();
    callback.within->set_value(std::move(nested));
    made.wait();
}

}  // namespace qoz::host::vppservice
