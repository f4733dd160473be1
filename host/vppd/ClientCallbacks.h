// The callback object of a client in another process, as the service calls it.
#pragma once

#include "host/vppd/Bus.h"
#include "host/vppd/Records.h"

#include <aidl/vendor/vuq/hardware/vpp/BnVppCallbacks.h>

#include <functional>
#include <memory>
#include <string>

namespace qoz::host::vppd {

class ClientCallbacks final : public vpp::BnVppCallbacks {
  public:
    // `onLetGo` is called when the service has let go of the object.
    ClientCallbacks(std::shared_ptr<Bus> bus, const std::string& client, const std::string& path,
                    std::function<void()> onLetGo);
    ~ClientCallbacks() override;

    using Status = ndk::ScopedAStatus;
    Status eventDrainDone(vpp::VppError* result) override;
    Status eventError(vpp::VppError error, vpp::VppError* result) override;
    Status eventFlushDone(const vpp::FlushDone& done, vpp::VppError* result) override;
    Status eventReconfigDone(const vpp::ReconfigDone& done, vpp::VppError* result) override;
    Status inputBufferDone(const vpp::VppBuffer& buffer, vpp::VppError* result) override;
    Status outputBufferDone(const vpp::VppBuffer& buffer, vpp::VppError* result) override;

  private:
    class Proxy;

    template <typename Call>
    Status forward(vpp::VppError* result, const Call& call);

    const std::shared_ptr<Bus> mBus;
    const std::unique_ptr<Proxy> mProxy;
    const std::function<void()> mOnLetGo;
};

}  // namespace qoz::host::vppd
