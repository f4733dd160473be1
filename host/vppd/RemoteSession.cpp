#include "host/vppd/RemoteSession.h"

#include "host/vppd/Names.h"
#include "host/vppd/Records.h"
#include "vppd/VppProxy.h"

#include <android/log.h>

#include <utility>

namespace qoz::host::vppd {

using Status = ndk::ScopedAStatus;

class RemoteSession::Proxy final : public sdbus::ProxyInterfaces<::org::qoz::VppSession1_proxy> {
  public:
    Proxy(sdbus::IConnection& connection, const std::string& owner, const std::string& path)
        : ProxyInterfaces(connection, owner, path) {
        registerProxy();
    }
    ~Proxy() { unregisterProxy(); }

    Proxy(const Proxy&) = delete;
    Proxy& operator=(const Proxy&) = delete;
};

RemoteSession::RemoteSession(std::shared_ptr<Bus> bus, std::string owner, const std::string& path)
    : mBus(std::move(bus)),
      mOwner(std::move(owner)),
      mProxy(std::make_unique<Proxy>(mBus->connection(), mOwner, path)) {}

RemoteSession::~RemoteSession() {
    letGo();
    if (mDead.load(std::memory_order_acquire)) return;
    try {
        mProxy->Release();
    } catch (const sdbus::Error&) {
        // Then there is nobody to release it.
    }
}

// The one way into every operation. What fails on the way touches no result.
template <typename Call>
Status RemoteSession::forward(Error* result, const Call& call) {
    const auto dead = [] { return Status::fromStatus(STATUS_DEAD_OBJECT); };
    if (mDead.load(std::memory_order_acquire)) return dead();
    if (result == nullptr) return Status::fromStatus(STATUS_UNKNOWN_TRANSACTION);
    try {
        const int32_t answer = call(*mProxy);
        if (mDead.load(std::memory_order_acquire)) return dead();
        *result = static_cast<Error>(answer);
        return Status::ok();
    } catch (const std::exception& error) {
        __android_log_print(ANDROID_LOG_WARN, "vppd", "call failed: %s", error.what());
        return dead();
    }
}

Status RemoteSession::close(Error* result) {
    Status status = forward(result, [](Proxy& p) { return p.Close(); });
    if (status.isOk() && *result == Error::VPP_OK) letGo();
    return status;
}

Status RemoteSession::terminateSession() {
    Error ignored = Error::VPP_OK;
    Status status = forward(&ignored, [](Proxy& p) { return p.TerminateSession(); });
    if (status.isOk()) letGo();
    return status;
}

// The receiver is in its place before anybody can know of it: a death meanwhile finds it there, or
// is found by the call.
Status RemoteSession::initSession(int32_t flags,
                                  const std::shared_ptr<vpp::IVppCallbacks>& callbacks,
                                  Error* result) {
    sdbus::ObjectPath path(kNoSession);
    if (callbacks != nullptr) {
        auto receiver = std::make_unique<CallbackReceiver>(mBus, callbacks);
        const std::lock_guard lock(mLock);
        if (mReceiver == nullptr) {
            path = receiver->path();
            mReceiver = std::move(receiver);
        }
    }
    Status status =
        forward(result, [&](Proxy& p) { return p.InitSession(flags, mBus->name(), path); });
    const bool taken = status.isOk() && *result == Error::VPP_OK;
    if (!taken && path != kNoSession) letGo();
    return status;
}

Status RemoteSession::open(Error* result) {
    return forward(result, [](Proxy& p) { return p.Open(); });
}

Status RemoteSession::drain(Error* result) {
    return forward(result, [](Proxy& p) { return p.Drain(); });
}

Status RemoteSession::flush(Port port, Error* result) {
    return forward(result, [&](Proxy& p) { return p.Flush(static_cast<int32_t>(port)); });
}

Status RemoteSession::queueBuf(Port port, const vpp::VppBuffer& buffer, Error* result) {
    return forward(result,
                   [&](Proxy& p) { return p.QueueBuf(static_cast<int32_t>(port), toBus(buffer)); });
}

Status RemoteSession::reconfigure(const PortParam& input, const PortParam& output, Error* result) {
    return forward(result, [&](Proxy& p) { return p.Reconfigure(toBus(input), toBus(output)); });
}

Status RemoteSession::setCtrlAis(const vpp::VppCtrlAis& control, Error* result) {
    return forward(result, [&](Proxy& p) { return p.SetCtrlAis(toBus(control)); });
}

Status RemoteSession::setCtrlFrc(const std::vector<vpp::VppCtrlFrcSegment>& segments,
                                 Error* result) {
    return forward(result, [&](Proxy& p) { return p.SetCtrlFrc(toBus(segments)); });
}

Status RemoteSession::setCtrlVppMode(int32_t mode, Error* result) {
    return forward(result, [&](Proxy& p) { return p.SetCtrlVppMode(mode); });
}

Status RemoteSession::setParameter(Port port, const PortParam& param, Error* result) {
    return forward(
        result, [&](Proxy& p) { return p.SetParameter(static_cast<int32_t>(port), toBus(param)); });
}

// The client's object goes on the calling thread, with no lock held.
void RemoteSession::letGo() {
    std::unique_ptr<CallbackReceiver> receiver;  // ends after the lock
    const std::lock_guard lock(mLock);
    receiver.swap(mReceiver);
}

}  // namespace qoz::host::vppd
