// SPDX-License-Identifier: Apache-2.0
// A session as its client sees it: the operations, and the order they may come in.
#pragma once

#include <android-base/thread_annotations.h>

#include <memory>
#include <mutex>
#include <optional>
#include <vector>

#include "host/vppservice/Engine.h"
#include "host/vppservice/FaultInjector.h"
#include "host/vppservice/ImportedBuffer.h"
#include "host/vppservice/VppSessionBase.h"

namespace qoz::host::vppservice {

class Session : public VppSessionBase {
  public:
    // What the session has counts against `quota`, if there is one.
    explicit Session(std::shared_ptr<FaultInjector> faults, std::shared_ptr<Quota> quota = nullptr);
    ~Session() override;

    Status close(Error* result) override;
    Status drain(Error* result) override;
    Status flush(Port port, Error* result) override;
    Status initSession(int32_t flags, const std::shared_ptr<vpp::IVppCallbacks>& callbacks,
                       Error* result) override;
    Status open(Error* result) override;
    Status queueBuf(Port port, const VppBuffer& buffer, Error* result) override;
    Status reconfigure(const PortParam& input, const PortParam& output, Error* result) override;
    Status setCtrlAis(const vpp::VppCtrlAis& control, Error* result) override;
    Status setCtrlFrc(const std::vector<vpp::VppCtrlFrcSegment>& segments, Error* result) override;
    Status setCtrlVppMode(int32_t mode, Error* result) override;
    Status setParameter(Port port, const PortParam& param, Error* result) override;
    Status terminateSession() override;

    // The end of the service, or of the client's connection, in two steps. First no call gets
    // through any more; callable with locks of the client held.
    void declareDead() EXCLUDES(mLock);
    // Then everything goes; this may destroy the client.
    void release() EXCLUDES(mLock);

    bool isLive() const EXCLUDES(mLock);

  private:
    enum class State { Fresh, Initialised, Open, Closed, Dead };

    template <typename Act>
    Status serve(const char* operation, Error* result, const Act& act);
    template <typename Give>
    Status command(const char* operation, Error* result, const Give& give);

    // What operations do once no fault stands in their way.
    Error openHeld() REQUIRES(mLock);
    Error queueHeld(Port port, const VppBuffer& buffer, Manner manner) REQUIRES(mLock);
    Error reconfigureHeld(const PortParam& input, const PortParam& output, Answer answer)
        REQUIRES(mLock);

    bool isDead() const EXCLUDES(mLock);
    bool isRunning() const REQUIRES(mLock) {
        return mState == State::Initialised || mState == State::Open;
    }
    void moveTo(State state) REQUIRES(mLock);
    // Ends the engine: the client's object goes with it.
    void end(State state) EXCLUDES(mLock);

    const std::shared_ptr<FaultInjector> mFaults;
    const BufferImporter mImporter;
    Pause mPause;

    mutable std::mutex mLock;
    State mState GUARDED_BY(mLock) = State::Fresh;
    PortSizes mSizes GUARDED_BY(mLock);
    std::shared_ptr<Engine> mEngine GUARDED_BY(mLock);
};

}  // namespace qoz::host::vppservice
