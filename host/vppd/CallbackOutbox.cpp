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
// Buffers of a port that the client has been sent and has not answered. Each is a call that the bus
// keeps account of, and it does so for a limited number.
constexpr size_t kMostReturning = 4;

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

// An answer that is being handled may still send what it had found due; that goes with the proxy.
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
    sendWhatMay();
}

void CallbackOutbox::sendWhatMay() {
    std::unique_lock lock(mLock);
    const android::base::ScopedLockAssertion held(mLock);
    if (mSending) return;  // who sends looks again
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

std::vector<CallbackOutbox::Entry> CallbackOutbox::takeDue() {
    std::vector<Entry> due;
    if (mClosed) return due;
    unsigned used = OutgoingCallback::kNoPort;  // ports of callbacks that come before
    unsigned stopped =
        OutgoingCallback::kNoPort;  // of those, ports that nothing more may follow on
    size_t returning[3] = {};       // buffers that have been sent, by port
    for (auto entry = mCallbacks.begin(); entry != mCallbacks.end(); ++entry) {
        const bool isBuffer = entry->settles == Owed::Buffer;
        if (!entry->sent && (entry->ports & (isBuffer ? stopped : used)) == 0) {
            entry->sent = true;
            due.push_back(entry);
        }
        const bool more = isBuffer && entry->sent && ++returning[entry->ports] < kMostReturning;
        used |= entry->ports;
        if (!more) stopped |= entry->ports;
        if (stopped == OutgoingCallback::kBoth) break;
    }
    return due;
}

// An entry that has been sent is left alone by all but its own answer.
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

void CallbackOutbox::onAnswer(Entry entry, const sdbus::Error* error) {
    if (error != nullptr && wasNotCarried(*error)) {
        retry(entry);
        return;
    }
    const std::optional<Owed> settled = entry->settles;
    {
        const std::lock_guard lock(mLock);
        mCallbacks.erase(entry);
    }
    if (settled) forgive(*settled);
    sendWhatMay();
}

void CallbackOutbox::retry(Entry entry) {
    mLater([self = weak_from_this(), entry] {
        std::this_thread::sleep_for(kPause);
        const auto alive = self.lock();
        if (alive == nullptr) return;
        {
            const std::lock_guard lock(alive->mLock);
            entry->sent = false;
        }
        alive->sendWhatMay();
    });
}

void CallbackOutbox::owe(Owed kind, vppservice::Reservation reservation) {
    const std::lock_guard lock(mLock);
    (kind == Owed::Buffer ? mOwedBuffers : mOwedEvents).push_back(std::move(reservation));
}

void CallbackOutbox::forgive(Owed kind) {
    const std::lock_guard lock(mLock);
    auto& owed = kind == Owed::Buffer ? mOwedBuffers : mOwedEvents;
    if (!owed.empty()) owed.pop_back();
}

}  // namespace qoz::host::vppd
