// SPDX-License-Identifier: Apache-2.0
// Sends the callbacks of a session to a client in another process.
#pragma once

#include <android-base/thread_annotations.h>

#include <functional>
#include <list>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <variant>
#include <vector>

#include "host/vppd/Bus.h"
#include "host/vppd/Records.h"
#include "host/vppservice/Quota.h"

namespace qoz::host::vppd {

// The kind of operation that a callback completes: the queueing of a buffer, which ends with its
// return, or a flush, drain or reconfiguration, which ends with an event.
enum class Completion { Buffer, Event };

// One callback. By default it is an event that concerns both ports and completes an operation.
struct OutgoingCallback {
    enum Ports : unsigned { kNoPort = 0, kInput = 1, kOutput = 2, kBoth = kInput | kOutput };

    const char* method = nullptr;  // the name on the bus
    std::variant<std::monostate, int32_t, BusBuffer> argument = {};
    Ports ports = kBoth;  // the ports whose order the callback must keep
    std::optional<Completion> completes = Completion::Event;
    bool sent = false;  // and not answered yet
};

// No function waits for the client. A slow, stopped or hostile client only makes its own callbacks
// accumulate here, up to its quota, and blocks no thread.
//
// Order. The client's process carries out the returns of one port in the order in which they were
// sent, so a few of them may be unanswered at a time. An event is sent when the client has answered
// all earlier callbacks on the ports of the event; later callbacks on these ports are sent when it
// has answered the event.
//
// Delivery. A callback for which the bus has no room is sent again until the bus takes it or the
// client leaves the bus; a later return may overtake it. A callback that the bus has taken waits
// for the client without a time limit and is not sent again. When the client leaves the bus, its
// session ends, and with it the callbacks that remain.
//
// Owned by the callback object of one session. Callable on any thread; replies arrive on the thread
// that reads the bus. The lock is not held during a call into the connection, because the
// connection holds its own lock while it handles a reply, and the handler takes this lock.
class CallbackOutbox : public std::enable_shared_from_this<CallbackOutbox> {
  public:
    // Runs a job on another thread, which may wait.
    using Later = std::function<void(std::function<void()>)>;

    CallbackOutbox(std::shared_ptr<Bus> bus, const std::string& client, const std::string& path,
                   Later later);
    // Must not run while a lock is held that the reading thread takes.
    ~CallbackOutbox();

    CallbackOutbox(const CallbackOutbox&) = delete;
    CallbackOutbox& operator=(const CallbackOutbox&) = delete;

    void post(OutgoingCallback callback) EXCLUDES(mLock);

    // addReservation() keeps a part of the client's quota for an operation that is about to be
    // carried out. It is given back when the client has answered a callback that completes an
    // operation of this kind. If the operation fails and no callback will follow,
    // removeReservation() gives it back.
    void addReservation(Completion kind, vppservice::Reservation reservation) EXCLUDES(mLock);
    void removeReservation(Completion kind) EXCLUDES(mLock);

  private:
    using Entry = std::list<OutgoingCallback>::iterator;

    void sendDue() EXCLUDES(mLock);
    std::vector<Entry> takeDue() REQUIRES(mLock);
    void send(Entry entry);
    void onAnswer(Entry entry, const sdbus::Error* error);
    void retry(Entry entry) EXCLUDES(mLock);

    const std::shared_ptr<Bus> mBus;
    const Later mLater;

    std::mutex mLock;
    bool mClosed GUARDED_BY(mLock) = false;
    // Whether a thread is sending. Only one thread sends at a time, which keeps the order.
    bool mSending GUARDED_BY(mLock) = false;
    std::list<OutgoingCallback> mCallbacks GUARDED_BY(mLock);
    std::vector<vppservice::Reservation> mBufferReservations GUARDED_BY(mLock);
    std::vector<vppservice::Reservation> mEventReservations GUARDED_BY(mLock);

    // The client's object. Destroyed before the members above, which the handlers of replies use.
    std::unique_ptr<sdbus::IProxy> mProxy;
};

}  // namespace qoz::host::vppd
