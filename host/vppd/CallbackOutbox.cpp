// SPDX-License-Identifier: Apache-2.0
#include "host/vppd/CallbackOutbox.h"

#include <cstdint>
#include <thread>
#include <utility>

#include "host/vppd/Names.h"
#include "host/vppd/RemoteCall.h"

namespace qoz::host::vppd {
namespace {

constexpr uint64_t kNoLimit = UINT64_MAX;
// The number of returns of one port that may be unanswered at a time. The bus limits the number of
// calls that it waits for.
constexpr size_t kMaxUnansweredBuffers = 4;

constexpr std::chrono::milliseconds kPause{20};  // before a callback is sent again

sdbus::AsyncMethodInvoker callWith(sdbus::AsyncMethodInvoker invoker,
                                   const decltype(OutgoingCallback::argument)& argument) {
    if (const auto* number = std::get_if<int32_t>(&argument)) invoker.withArguments(*number);
    if (const auto* buffer = std::get_if<BusBuffer>(&argument)) invoker.withArguments(*buffer);
    return invoker;
}

}  // namespace

CallbackOutbox::CallbackOutbox(std::shared_ptr<Bus> bus, const std::string& client,
                               const std::string& path, Later later)
    : mBus(std::move(bus)),
      mLater(std::move(later)),
      mProxy(sdbus::createProxy(mBus->connection(), client, path)) {}

// unregister() waits for a reply that is being handled on the reading thread. That handler may
// still send callbacks that it had found due; they are discarded with the proxy.
CallbackOutbox::~CallbackOutbox() {
    {
        const std::lock_guard lock(mLock);
        mClosed = true;
    }
    mProxy->unregister();
}

void CallbackOutbox::post(OutgoingCallback callback) {
    {
        const std::lock_guard lock(mLock);
        mCallbacks.push_back(std::move(callback));
    }
    sendDue();
}

// Sends all callbacks that are due, without the lock.
void CallbackOutbox::sendDue() {
    std::unique_lock lock(mLock);
    const android::base::ScopedLockAssertion held(mLock);
    if (mSending) return;  // the thread that sends calls takeDue() again before it ends
    mSending = true;
    for (auto due = takeDue(); !due.empty(); due = takeDue()) {
        lock.unlock();
        for (const Entry entry : due) {
            send(entry);
        }
        lock.lock();
    }
    mSending = false;
}

// Returns the callbacks that may be sent now, in order, and marks them as sent.
std::vector<CallbackOutbox::Entry> CallbackOutbox::takeDue() {
    std::vector<Entry> due;
    if (mClosed) return due;
    unsigned used = OutgoingCallback::kNoPort;     // ports of the earlier callbacks
    unsigned stopped = OutgoingCallback::kNoPort;  // ports on which no more may be sent
    size_t unanswered[3] = {};                     // returns that have been sent, by port
    for (auto entry = mCallbacks.begin(); entry != mCallbacks.end(); ++entry) {
        const bool isBuffer = entry->completes == Completion::Buffer;
        if (!entry->sent && (entry->ports & (isBuffer ? stopped : used)) == 0) {
            entry->sent = true;
            due.push_back(entry);
        }
        const bool more =
            isBuffer && entry->sent && ++unanswered[entry->ports] < kMaxUnansweredBuffers;
        used |= entry->ports;
        if (!more) stopped |= entry->ports;
        if (stopped == OutgoingCallback::kBoth) break;
    }
    return due;
}

// Sends one callback, without the lock. Once an entry is marked as sent, only the handler of its
// reply changes or removes it.
void CallbackOutbox::send(Entry entry) {
    try {
        callWith(mProxy->callMethodAsync(entry->method)
                     .onInterface(kCallbacksInterface)
                     .withTimeout(kNoLimit),
                 entry->argument)
            .uponReplyInvoke([this, entry](const sdbus::Error* error, int32_t /*result*/) {
                onAnswer(entry, error);
            });
    } catch (const sdbus::Error&) {
        retry(entry);
    }
}

// Runs on the reading thread. Any answer of the client completes the operation, even an error.
void CallbackOutbox::onAnswer(Entry entry, const sdbus::Error* error) {
    if (error != nullptr && wasNotDelivered(*error)) {
        retry(entry);
        return;
    }
    const std::optional<Completion> completed = entry->completes;
    {
        const std::lock_guard lock(mLock);
        mCallbacks.erase(entry);
    }
    if (completed) removeReservation(*completed);
    sendDue();
}

// Sends a callback again after a pause.
void CallbackOutbox::retry(Entry entry) {
    mLater([self = weak_from_this(), entry] {
        std::this_thread::sleep_for(kPause);
        const auto alive = self.lock();
        if (alive == nullptr) return;
        {
            const std::lock_guard lock(alive->mLock);
            entry->sent = false;
        }
        alive->sendDue();
    });
}

void CallbackOutbox::addReservation(Completion kind, vppservice::Reservation reservation) {
    const std::lock_guard lock(mLock);
    (kind == Completion::Buffer ? mBufferReservations : mEventReservations)
        .push_back(std::move(reservation));
}

void CallbackOutbox::removeReservation(Completion kind) {
    const std::lock_guard lock(mLock);
    auto& owed = kind == Completion::Buffer ? mBufferReservations : mEventReservations;
    if (!owed.empty()) owed.pop_back();
}

}  // namespace qoz::host::vppd
