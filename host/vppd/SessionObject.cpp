#include "host/vppd/SessionObject.h"

#include "host/vppd/ClientCallbacks.h"
#include "host/vppd/Names.h"

#include <android/log.h>

#include <optional>

namespace qoz::host::vppd {
namespace {

using vpp::IVpp;
using vpp::VppError;

void give(const sdbus::Result<int32_t>& answer, const ndk::ScopedAStatus& status, VppError error) {
    try {
        if (status.isOk()) {
            answer.returnResults(static_cast<int32_t>(error));
        } else {
            answer.returnError(sdbus::Error(kDeadObject, "the call failed below its result"));
        }
    } catch (const sdbus::Error&) {
        // Who asked is gone.
    }
}

void refuse(const sdbus::Result<int32_t>& answer, const char* operation) {
    __android_log_print(ANDROID_LOG_ERROR, "vppd", "%s: refused what makes no sense", operation);
    give(answer, ndk::ScopedAStatus::ok(), VppError::VPP_ERR_PARAM);
}

}  // namespace

SessionObject::SessionObject(std::shared_ptr<Bus> connection, std::string path, std::string client,
                             std::shared_ptr<IVpp> session, Hooks hooks)
    : KeepsBus{std::move(connection)},
      AdaptorInterfaces(bus->connection(), std::move(path)),
      mClient(std::move(client)),
      mSession(std::move(session)),
      mHooks(std::move(hooks)) {
    registerAdaptor();
}

SessionObject::~SessionObject() {
    unregisterAdaptor();
    mExecutor.stop(kCallLimit);
    VppError ignored = VppError::VPP_OK;
    (void)mSession->close(&ignored);
    (void)mSession->terminateSession();
}

template <typename Call>
void SessionObject::carryOut(Answer&& answer, Call call) {
    const auto owed = std::make_shared<Answer>(std::move(answer));
    mExecutor.post([session = mSession, look = mHooks.look, owed, call = std::move(call)] {
        VppError error = VppError::VPP_OK;
        const ndk::ScopedAStatus status = call(*session, &error);
        give(*owed, status, error);
        look();
    });
}

void SessionObject::InitSession(Answer&& answer, int32_t flags, std::string client,
                                sdbus::ObjectPath callbacks) {
    if (client != mClient) {
        refuse(answer, "initSession");
        return;
    }
    std::shared_ptr<ClientCallbacks> to;
    if (callbacks != kNoSession) {
        to = ndk::SharedRefBase::make<ClientCallbacks>(bus, client, callbacks, mHooks.look);
    }
    carryOut(std::move(answer), [flags, to](IVpp& session, VppError* error) {
        return session.initSession(flags, to, error);
    });
}

void SessionObject::Open(Answer&& answer) {
    carryOut(std::move(answer), [](IVpp& session, VppError* error) { return session.open(error); });
}

void SessionObject::Close(Answer&& answer) {
    carryOut(std::move(answer),
             [](IVpp& session, VppError* error) { return session.close(error); });
}

void SessionObject::Drain(Answer&& answer) {
    carryOut(std::move(answer),
             [](IVpp& session, VppError* error) { return session.drain(error); });
}

void SessionObject::Flush(Answer&& answer, int32_t port) {
    carryOut(std::move(answer), [port](IVpp& session, VppError* error) {
        return session.flush(static_cast<vpp::VppPort>(port), error);
    });
}

void SessionObject::QueueBuf(Answer&& answer, int32_t port, BusBuffer sent) {
    std::optional<vpp::VppBuffer> buffer = fromBus(std::move(sent));
    if (!buffer) {
        refuse(answer, "queueBuf");
        return;
    }
    const auto shared = std::make_shared<vpp::VppBuffer>(std::move(*buffer));
    carryOut(std::move(answer), [port, shared](IVpp& session, VppError* error) {
        return session.queueBuf(static_cast<vpp::VppPort>(port), *shared, error);
    });
}

void SessionObject::Reconfigure(Answer&& answer, BusPort input, BusPort output) {
    carryOut(std::move(answer),
             [in = fromBus(input), out = fromBus(output)](IVpp& session, VppError* error) {
                 return session.reconfigure(in, out, error);
             });
}

void SessionObject::SetCtrlAis(Answer&& answer, BusAis sent) {
    const std::optional<vpp::VppCtrlAis> control = fromBus(sent);
    if (!control) {
        refuse(answer, "setCtrlAis");
        return;
    }
    carryOut(std::move(answer), [control = *control](IVpp& session, VppError* error) {
        return session.setCtrlAis(control, error);
    });
}

void SessionObject::SetCtrlFrc(Answer&& answer, std::vector<BusSegment> sent) {
    const std::optional<std::vector<vpp::VppCtrlFrcSegment>> segments = fromBus(sent);
    if (!segments) {
        refuse(answer, "setCtrlFrc");
        return;
    }
    carryOut(std::move(answer), [segments = *segments](IVpp& session, VppError* error) {
        return session.setCtrlFrc(segments, error);
    });
}

void SessionObject::SetCtrlVppMode(Answer&& answer, int32_t mode) {
    carryOut(std::move(answer), [mode](IVpp& session, VppError* error) {
        return session.setCtrlVppMode(mode, error);
    });
}

void SessionObject::SetParameter(Answer&& answer, int32_t port, BusPort param) {
    carryOut(std::move(answer), [port, to = fromBus(param)](IVpp& session, VppError* error) {
        return session.setParameter(static_cast<vpp::VppPort>(port), to, error);
    });
}

void SessionObject::TerminateSession(Answer&& answer) {
    carryOut(std::move(answer),
             [](IVpp& session, VppError*) { return session.terminateSession(); });
}

void SessionObject::Release() {
    mHooks.release();
}

}  // namespace qoz::host::vppd
