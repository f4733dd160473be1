// A session of a service in another process.
#pragma once

#include "host/vppd/Bus.h"
#include "host/vppd/CallbackReceiver.h"
#include "host/vppservice/VppSessionBase.h"

#include <atomic>
#include <memory>
#include <mutex>
#include <string>
#include <vector>

namespace qoz::host::vppd {

class RemoteSession : public VppSessionBase {
  public:
    // `owner` is the unique name of the process: a service that was started anew never hears of the
    // sessions before it.
    RemoteSession(std::shared_ptr<Bus> bus, std::string owner, const std::string& path);
    ~RemoteSession() override;

    Status close(Error* result) override;
    Status drain(Error* result) override;
    Status flush(Port port, Error* result) override;
    Status initSession(int32_t flags, const std::shared_ptr<vpp::IVppCallbacks>& callbacks,
                       Error* result) override;
    Status open(Error* result) override;
    Status queueBuf(Port port, const vpp::VppBuffer& buffer, Error* result) override;
    Status reconfigure(const PortParam& input, const PortParam& output, Error* result) override;
    Status setCtrlAis(const vpp::VppCtrlAis& control, Error* result) override;
    Status setCtrlFrc(const std::vector<vpp::VppCtrlFrcSegment>& segments, Error* result) override;
    Status setCtrlVppMode(int32_t mode, Error* result) override;
    Status setParameter(Port port, const PortParam& param, Error* result) override;
    Status terminateSession() override;

    const std::string& owner() const { return mOwner; }

    // The death of the service, in two steps. First no call gets through any more; callable on any
    // thread and with locks of the client held.
    void declareDead() { mDead.store(true, std::memory_order_release); }
    // Then the client's object goes; this may destroy the client.
    void release() { letGo(); }

  private:
    class Proxy;

    template <typename Call>
    Status forward(Error* result, const Call& call);
    void letGo();

    const std::shared_ptr<Bus> mBus;
    const std::string mOwner;
    const std::unique_ptr<Proxy> mProxy;
    std::atomic<bool> mDead{false};

    std::mutex mLock;
    std::unique_ptr<CallbackReceiver> mReceiver;
};

}  // namespace qoz::host::vppd
