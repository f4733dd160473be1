// SPDX-License-Identifier: Apache-2.0
// A session of a service in another process.
#pragma once

#include <android-base/thread_annotations.h>

#include <atomic>
#include <memory>
#include <mutex>
#include <string>
#include <vector>

#include "host/vppd/Bus.h"
#include "host/vppd/CallbackReceiver.h"
#include "host/vppservice/VppSessionBase.h"

namespace qoz::host::vppd {

// Owned by the client. Operations block the caller, at most kCallLimit in all. One that did not
// leave this process, for want of a descriptor, a thread or room on the bus, has the result
// VPP_ERR_RESOURCES; one that failed further on touches no result.
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
    const Bus* bus() const { return mBus.get(); }

    // The death of the service, or of the connection to it, in two steps. First no call gets
    // through any more; callable on any thread and with locks of the client held.
    void declareDead() { mDead.store(true, std::memory_order_release); }
    bool isDead() const { return mDead.load(std::memory_order_acquire) || !mBus->isAlive(); }
    // Then the client's object goes; this may destroy the client.
    void release() EXCLUDES(mLock);

  private:
    template <typename... Args>
    Status forward(SteadyTime end, Error* result, const char* method, const Args&... args);
    template <typename... Args>
    Status forward(Error* result, const char* method, const Args&... args);
    bool install(const std::shared_ptr<vpp::IVppCallbacks>& callbacks, std::string* path)
        EXCLUDES(mLock);
    void letGo(SteadyTime end) EXCLUDES(mLock);

    const std::shared_ptr<Bus> mBus;
    const std::string mOwner;
    const std::unique_ptr<sdbus::IProxy> mProxy;
    std::atomic<bool> mDead{false};  // set once; a call that misses it fails on the way

    std::mutex mLock;
    std::unique_ptr<CallbackReceiver> mReceiver GUARDED_BY(mLock);
};

}  // namespace qoz::host::vppd
