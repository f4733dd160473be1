// SPDX-License-Identifier: Apache-2.0
#include "host/vppd/SessionObject.h"

#include <optional>
#include <utility>

#include "host/vppd/ClientCallbacks.h"
#include "host/vppd/Names.h"

namespace qoz::host::vppd {

using Status = ndk::ScopedAStatus;
using vpp::VppError;
using vppservice::Session;

SessionObject::SessionObject(std::shared_ptr<Bus> connection, std::string path, Client client,
                             std::function<void()> onEnded)
    : KeepsBus{std::move(connection)},
      AdaptorInterfaces(bus->connection(), std::move(path)),
      mClient(std::move(client)),
      mOnEnded(std::move(onEnded)) {
    registerAdaptor();
}

void SessionObject::open(const std::shared_ptr<vppservice::Service>& service, int32_t flags,
                         Opened&& answer) {
    const auto shared = std::make_shared<Opened>(std::move(answer));
    mExecutor.post([self = shared_from_this(), service, flags, shared] {
        std::shared_ptr<Session> session;
        const bool ok = service->openSession(flags, self->mClient.quota, &session).isOk();
        const bool opened = session != nullptr;
        self->adopt(std::move(session));
        if (ok) shared->give(sdbus::ObjectPath(opened ? self->getObjectPath() : kNoSession));
        if (!opened) self->end();
    });
}

// Keeps the session. If the client has left since it requested the session, the session is dead at
// once.
void SessionObject::adopt(std::shared_ptr<Session> session) {
    if (session == nullptr) return;
    const std::lock_guard lock(mLock);
    if (mEnded) session->declareDead();
    mSession = std::move(session);
}

std::shared_ptr<Session> SessionObject::session() {
    const std::lock_guard lock(mLock);
    return mSession;
}

void SessionObject::end() {
    std::shared_ptr<Session> session;
    {
        const std::lock_guard lock(mLock);
        if (mEnded) return;
        mEnded = true;
        session = mSession;
    }
    if (session != nullptr) session->declareDead();
    mExecutor.postLast([self = shared_from_this()] { self->finish(); });
}

// The last job of the executor. mOnEnded drops the owner's reference.
void SessionObject::finish() {
    mGate->close();
    unregisterAdaptor();
    if (const auto session = this->session()) session->release();
    mOnEnded();
}

bool SessionObject::admits(const char* operation, PendingAnswer<int32_t>& answer) {
    const std::string caller = getObject().getCurrentlyProcessedMessage()->getSender();
    if (caller == mClient.name) return true;
    mRefusals.log(operation, caller.c_str(), "the session belongs to another connection");
    answer.deny();
    return false;
}

// Refuses a call on the reading thread, because its record is not valid or exceeds a limit.
void SessionObject::refuse(const char* operation, Answer&& result, VppError error) {
    PendingAnswer answer(mGate, std::move(result));
    if (!admits(operation, answer)) return;
    mRefusals.log(operation, mClient.name.c_str(), vpp::toString(error).c_str());
    answer.give(static_cast<int32_t>(error));
}

// Hands a call to the executor if the client's quota permits. Each descriptor of a record counts
// twice, because it is open in the message and in the record that was read from it.
void SessionObject::carryOut(const char* operation, Answer&& result, Call call,
                             uint64_t descriptors) {
    PendingAnswer answer(mGate, std::move(result));
    if (!admits(operation, answer)) return;
    auto reservation = mClient.quota->reserve({.calls = 1, .descriptors = 2 * descriptors});
    if (!reservation) {
        mRefusals.log(operation, mClient.name.c_str(), "too many waiting calls");
        answer.give(static_cast<int32_t>(VppError::VPP_ERR_RESOURCES));
        return;
    }
    struct Waiting {
        PendingAnswer<int32_t> answer;
        vppservice::Reservation reservation;
        Call call;
    };
    const auto waiting = std::make_shared<Waiting>(
        Waiting{std::move(answer), std::move(*reservation), std::move(call)});
    mExecutor.post([self = shared_from_this(), waiting] {
        const auto session = self->session();
        if (session == nullptr) return;
        VppError error = VppError::VPP_OK;
        const Status status = waiting->call(*session, &error);
        waiting->reservation = {};
        if (status.isOk()) waiting->answer.give(static_cast<int32_t>(error));
    });
}

// Like carryOut(), for an operation that a callback completes later.
void SessionObject::carryOutWithCallback(Completion kind, const char* operation, Answer&& answer,
                                         Call call, uint64_t descriptors) {
    carryOut(
        operation, std::move(answer),
        [this, kind, call = std::move(call)](Session& session, VppError* error) {
            return callWithCallback(kind, call, session, error);
        },
        descriptors);
}

// Carries out an operation that a callback completes. It counts against the client's quota until
// the client has answered that callback. The reservation is added before the call, because the
// callback may be answered before the call returns.
Status SessionObject::callWithCallback(Completion kind, const Call& call, Session& session,
                                       VppError* error) {
    const auto outbox = mOutbox.lock();
    if (outbox == nullptr) return call(session, error);
    auto reservation =
        mClient.quota->reserve(kind == Completion::Buffer ? vppservice::Resources{.buffers = 1}
                                                          : vppservice::Resources{.events = 1});
    if (!reservation) {
        *error = VppError::VPP_ERR_RESOURCES;
        return Status::ok();
    }
    outbox->addReservation(kind, std::move(*reservation));
    Status status = call(session, error);
    if (!status.isOk() || *error != VppError::VPP_OK) outbox->removeReservation(kind);
    return status;
}

// Callbacks are sent only to the client's own connection, so the name of another one is refused.
void SessionObject::InitSession(Answer&& answer, int32_t flags, std::string client,
                                sdbus::ObjectPath callbacks) {
    if (client != mClient.name) {
        refuse("initSession", std::move(answer));
        return;
    }
    carryOut("initSession", std::move(answer),
             [this, flags, callbacks = std::move(callbacks)](Session& session, VppError* error) {
                 return initSession(flags, callbacks, session, error);
             });
}

Status SessionObject::initSession(int32_t flags, const std::string& callbacks, Session& session,
                                  VppError* error) {
    if (callbacks == kNoSession) return session.initSession(flags, nullptr, error);
    const auto later = [self = weak_from_this()](std::function<void()> job) {
        if (const auto alive = self.lock()) alive->mExecutor.post(std::move(job));
    };
    const auto outbox = std::make_shared<CallbackOutbox>(bus, mClient.name, callbacks, later);
    Status status =
        session.initSession(flags, ndk::SharedRefBase::make<ClientCallbacks>(outbox), error);
    if (status.isOk() && *error == VppError::VPP_OK) mOutbox = outbox;
    return status;
}

void SessionObject::Open(Answer&& answer) {
    carryOut("open", std::move(answer),
             [](Session& session, VppError* error) { return session.open(error); });
}

void SessionObject::Close(Answer&& answer) {
    carryOut("close", std::move(answer),
             [](Session& session, VppError* error) { return session.close(error); });
}

void SessionObject::Drain(Answer&& answer) {
    carryOutWithCallback(Completion::Event, "drain", std::move(answer),
                         [](Session& session, VppError* error) { return session.drain(error); });
}

void SessionObject::Flush(Answer&& answer, int32_t port) {
    carryOutWithCallback(Completion::Event, "flush", std::move(answer),
                         [port](Session& session, VppError* error) {
                             return session.flush(static_cast<vpp::VppPort>(port), error);
                         });
}

void SessionObject::QueueBuf(Answer&& answer, int32_t port, BusBuffer sent) {
    const uint64_t descriptors = descriptorsIn(sent);
    if (descriptors > vppservice::kMostRecordDescriptors) {
        refuse("queueBuf", std::move(answer), VppError::VPP_ERR_RESOURCES);
        return;
    }
    std::optional<vpp::VppBuffer> buffer = fromBus(std::move(sent));
    if (!buffer) {
        refuse("queueBuf", std::move(answer));
        return;
    }
    const auto shared = std::make_shared<vpp::VppBuffer>(std::move(*buffer));
    carryOutWithCallback(
        Completion::Buffer, "queueBuf", std::move(answer),
        [port, shared](Session& session, VppError* error) {
            return session.queueBuf(static_cast<vpp::VppPort>(port), *shared, error);
        },
        descriptors);
}

void SessionObject::Reconfigure(Answer&& answer, BusPort input, BusPort output) {
    carryOutWithCallback(
        Completion::Event, "reconfigure", std::move(answer),
        [in = fromBus(input), out = fromBus(output)](Session& session, VppError* error) {
            return session.reconfigure(in, out, error);
        });
}

void SessionObject::SetCtrlAis(Answer&& answer, BusAis sent) {
    std::optional<vpp::VppCtrlAis> control = fromBus(sent);
    if (!control) {
        refuse("setCtrlAis", std::move(answer));
        return;
    }
    carryOut("setCtrlAis", std::move(answer),
             [control = std::move(*control)](Session& session, VppError* error) {
                 return session.setCtrlAis(control, error);
             });
}

void SessionObject::SetCtrlFrc(Answer&& answer, std::vector<BusSegment> sent) {
    std::optional<std::vector<vpp::VppCtrlFrcSegment>> segments = fromBus(sent);
    if (!segments) {
        refuse("setCtrlFrc", std::move(answer));
        return;
    }
    carryOut("setCtrlFrc", std::move(answer),
             [segments = std::move(*segments)](Session& session, VppError* error) {
                 return session.setCtrlFrc(segments, error);
             });
}

void SessionObject::SetCtrlVppMode(Answer&& answer, int32_t mode) {
    carryOut("setCtrlVppMode", std::move(answer), [mode](Session& session, VppError* error) {
        return session.setCtrlVppMode(mode, error);
    });
}

void SessionObject::SetParameter(Answer&& answer, int32_t port, BusPort param) {
    carryOut("setParameter", std::move(answer),
             [port, to = fromBus(param)](Session& session, VppError* error) {
                 return session.setParameter(static_cast<vpp::VppPort>(port), to, error);
             });
}

void SessionObject::TerminateSession(Answer&& answer) {
    carryOut("terminateSession", std::move(answer),
             [](Session& session, VppError*) { return session.terminateSession(); });
}

// Ends the object on the executor's thread, because it must not be destroyed while it handles a
// call on the reading thread.
void SessionObject::Release() {
    const std::string caller = getObject().getCurrentlyProcessedMessage()->getSender();
    if (caller == mClient.name) {
        end();
    } else {
        mRefusals.log("release", caller.c_str(), "the session belongs to another connection");
    }
}

}  // namespace qoz::host::vppd
