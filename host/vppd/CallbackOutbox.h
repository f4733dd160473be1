// SPDX-License-Identifier: Apache-2.0
// Callbacks on their way to a client in another process.
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

// What a callback settles: something that the client gave and is owed an answer for.
enum class Owed { Buffer, Event };

struct OutgoingCallback {
    enum Ports : unsigned { kNoPort = 0, kInput = 1, kOutput = 2, kBoth = kInput | kOutput };

    const char* method = nullptr;
    std::variant<std::monostate, int32_t, BusBuffer> argument = {};
    Ports ports = kBoth;
    std::optional<Owed> settles = Owed::Event;
    bool sent = false;
};

// Never waits: a client that is slow, stopped or hostile costs the callbacks that it is owed, which
// its quota bounds, and no thread.
//
// The client's end carries the callbacks of one port out in the order sent. Returned buffers of a
// port follow each other without waiting, a few at a time; an event waits until the client has
// answered all that came before it on its ports, and what comes after it waits for that.
//
// Nothing is lost on the way. What the bus refuses to carry is sent again until it is carried or
// the client leaves the bus. What it carries waits in the client's queue, however long the client
// takes, and is not sent a second time. (One that is sent again may come after a later buffer.) The
// connection's end takes both the rest and the session.
//
// Owned by the callback object of one session. Callable on any thread; replies come on the thread
// that reads the bus. The lock is not held across a call into the connection, whose own lock is
// held while a reply is handled.
class CallbackOutbox : public std::enable_shared_from_this<CallbackOutbox> {
  public:
    // Runs a job a little later, on a thread that may wait.
    using Later = std::function<void(std::function<void()>)>;

    CallbackOutbox(std::shared_ptr<Bus> bus, const std::string& client, const std::string& path,
                   Later later);
    // Not with a lock held that the reading thread takes.
    ~CallbackOutbox();

    CallbackOutbox(const CallbackOutbox&) = delete;
    CallbackOutbox& operator=(const CallbackOutbox&) = delete;

    void post(OutgoingCallback callback) EXCLUDES(mLock);

    // Keeps a part of the client's quota until a callback has settled it, or until it turns out
    // that nothing is owed.
    void owe(Owed kind, vppservice::Reservation reservation) EXCLUDES(mLock);
    void forgive(Owed kind) EXCLUDES(mLock);

  private:
    using Entry = std::list<OutgoingCallback>::iterator;

    void sendWhatMay() EXCLUDES(mLock);
    std::vector<Entry> takeDue() REQUIRES(mLock);
    void send(Entry entry);
    void onAnswer(Entry entry, const sdbus::Error* error);
    void retry(Entry entry) EXCLUDES(mLock);

    const std::shared_ptr<Bus> mBus;
    const Later mLater;

    std::mutex mLock;
    bool mClosed GUARDED_BY(mLock) = false;
    bool mSending GUARDED_BY(mLock) = false;  // one thread at a time, which keeps the order
    std::list<OutgoingCallback> mCallbacks GUARDED_BY(mLock);
    std::vector<vppservice::Reservation> mOwedBuffers GUARDED_BY(mLock);
    std::vector<vppservice::Reservation> mOwedEvents GUARDED_BY(mLock);

    std::unique_ptr<sdbus::IProxy> mProxy;  // goes first
};

}  // namespace qoz::host::vppd
