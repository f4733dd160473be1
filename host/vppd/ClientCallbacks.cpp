#include "host/vppd/ClientCallbacks.h"

#include "vppd/VppProxy.h"

#include <android/log.h>

#include <utility>

namespace qoz::host::vppd {

using vpp::VppError;

class ClientCallbacks::Proxy final
    : public sdbus::ProxyInterfaces<::org::qoz::VppCallbacks1_proxy> {
  public:
    Proxy(sdbus::IConnection& connection, const std::string& client, const std::string& path)
        : ProxyInterfaces(connection, client, path) {
        registerProxy();
    }
    ~Proxy() { unregisterProxy(); }

    Proxy(const Proxy&) = delete;
    Proxy& operator=(const Proxy&) = delete;
};

ClientCallbacks::ClientCallbacks(std::shared_ptr<Bus> bus, const std::string& client,
                                 const std::string& path, std::function<void()> onLetGo)
    : mBus(std::move(bus)),
      mProxy(std::make_unique<Proxy>(mBus->connection(), client, path)),
      mOnLetGo(std::move(onLetGo)) {}

ClientCallbacks::~ClientCallbacks() {
    mOnLetGo();
}

template <typename Call>
ndk::ScopedAStatus ClientCallbacks::forward(VppError* result, const Call& call) {
    try {
        *result = static_cast<VppError>(call(*mProxy));
        return Status::ok();
    } catch (const std::exception& error) {
        __android_log_print(ANDROID_LOG_WARN, "vppd", "callback failed: %s", error.what());
        return Status::fromStatus(STATUS_DEAD_OBJECT);
    }
}

ndk::ScopedAStatus ClientCallbacks::eventDrainDone(VppError* result) {
    return forward(result, [](Proxy& p) { return p.EventDrainDone(); });
}

ndk::ScopedAStatus ClientCallbacks::eventError(VppError error, VppError* result) {
    return forward(result, [&](Proxy& p) { return p.EventError(static_cast<int32_t>(error)); });
}

ndk::ScopedAStatus ClientCallbacks::eventFlushDone(const vpp::FlushDone& done, VppError* result) {
    return forward(result, [&](Proxy& p) { return p.EventFlushDone(done.port); });
}

ndk::ScopedAStatus ClientCallbacks::eventReconfigDone(const vpp::ReconfigDone& done,
                                                      VppError* result) {
    return forward(result, [&](Proxy& p) { return p.EventReconfigDone(done.status); });
}

ndk::ScopedAStatus ClientCallbacks::inputBufferDone(const vpp::VppBuffer& buffer,
                                                    VppError* result) {
    return forward(result, [&](Proxy& p) { return p.InputBufferDone(toBus(buffer)); });
}

ndk::ScopedAStatus ClientCallbacks::outputBufferDone(const vpp::VppBuffer& buffer,
                                                     VppError* result) {
    return forward(result, [&](Proxy& p) { return p.OutputBufferDone(toBus(buffer)); });
}

}  // namespace qoz::host::vppd
