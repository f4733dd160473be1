// SPDX-License-Identifier: Apache-2.0
// A session in another process, for a client in this one.
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

// Forwards every operation to the session in the service's process. Owned by the client. An
// operation blocks its caller for kCallLimit at most. If a call was not delivered, because there
// was no descriptor, no thread or no room on the bus, its result is VPP_ERR_RESOURCES. If it failed
// later, it has a transport error and writes no result.
class RemoteSession : public VppSessionBase {
  public:
    // `owner` is the unique name of the service's process. It is used instead of the service's
    // name, because a service that was started again must not receive calls for earlier sessions.
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

    // The death of the service or the loss of the connection ends a session in two steps. After
    // declareDead(), every call has a transport error. It may be called on any thread and under any
    // lock, because it only sets a flag.
    void declareDead() { mDead.store(true, std::memory_order_release); }
    bool isDead() const { return mDead.load(std::memory_order_acquire) || !mBus->isAlive(); }
    // Then release() releases the client's callback object, which may destroy the client.
    void release() EXCLUDES(mLock);

  private:
    // All operations are carried out by forward(). By default their limit is kCallLimit from now.
    template <typename... Args>
    Status forward(SteadyTime end, Error* result, const char* method, const Args&... args);
    template <typename... Args>
    Status forward(Error* result, const char* method, const Args&... args);
    bool installReceiver(const std::shared_ptr<vpp::IVppCallbacks>& callbacks, std::string* path)
        EXCLUDES(mLock);
    void removeReceiver(SteadyTime end) EXCLUDES(mLock);

    const std::shared_ptr<Bus> mBus;
    const std::string mOwner;
    const std::unique_ptr<sdbus::IProxy> mProxy;
    std::atomic<bool> mDead{false};  // never cleared; a call that sees it late fails on its way

    std::mutex mLock;
    std::unique_ptr<CallbackReceiver> mReceiver GUARDED_BY(mLock);
};

}  // namespace qoz::host::vppd
