// SPDX-License-Identifier: Apache-2.0
// The session object that the client calls. It checks the order and the parameters of the
// operations and applies armed faults.
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

// The service creates one for each client request, and the client owns it. Operations may come on
// any thread. mLock guards the state and the sizes and is held while the engine is called, except
// by stop(), which may wait for the client's callback. Every operation first looks for an armed
// fault, see serve() in the source.
class Session : public VppSessionBase {
  public:
    // The session's resources count against `quota`, unless that is null.
    explicit Session(std::shared_ptr<FaultInjector> faults, std::shared_ptr<Quota> quota = nullptr);
    ~Session() override;

    // The order of a session's life: initSession(), setCtrlVppMode() and setParameter() for both
    // ports, open(), then buffers and commands, and close(). An operation at the wrong time is
    // answered with VPP_ERR_STATE.
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

    // The service, or the client's connection, ends a session in two steps. After this first step
    // every call fails with a dead object. It does not wait and calls nobody, so it may be called
    // while the client's locks are held.
    void declareDead() EXCLUDES(mLock);
    // The second step drops the queued buffers and the client's object. It may wait for a callback
    // and may destroy the client.
    void release() EXCLUDES(mLock);

    // Returns whether the session is neither closed nor dead.
    bool isLive() const EXCLUDES(mLock);

  private:
    // The order matters: states from Closed on are final.
    enum class State { Fresh, Initialised, Open, Closed, Dead };

    template <typename Act>
    Status serve(const char* operation, Error* result, const Act& act);
    template <typename Give>
    Status command(const char* operation, Error* result, const Give& give);

    // The operations themselves, after the faults; the caller holds the lock.
    Error openHeld() REQUIRES(mLock);
    Error queueHeld(Port port, const VppBuffer& buffer, Manner manner) REQUIRES(mLock);
    Error reconfigureHeld(const PortParam& input, const PortParam& output, Answer answer)
        REQUIRES(mLock);

    bool isDead() const EXCLUDES(mLock);
    bool isRunning() const REQUIRES(mLock) {
        return mState == State::Initialised || mState == State::Open;
    }
    void moveTo(State state) REQUIRES(mLock);
    // Moves to a final state and stops the engine, which releases the client's object. May wait.
    void end(State state) EXCLUDES(mLock);

    const std::shared_ptr<FaultInjector> mFaults;
    const BufferImporter mImporter;
    Pause mPause;

    mutable std::mutex mLock;
    State mState GUARDED_BY(mLock) = State::Fresh;
    bool mHasMode GUARDED_BY(mLock) = false;  // whether a mode has been accepted
    PortSizes mSizes GUARDED_BY(mLock);
    std::shared_ptr<Engine> mEngine GUARDED_BY(mLock);
};

}  // namespace qoz::host::vppservice
