// A session as its client sees it: the operations, and the order they may come in.
#pragma once

#include "host/vppservice/Engine.h"
#include "host/vppservice/FaultInjector.h"
#include "host/vppservice/ImportedBuffer.h"
#include "host/vppservice/VppSessionBase.h"

#include <memory>
#include <mutex>
#include <optional>
#include <vector>

namespace qoz::host::vppservice {

class Session : public VppSessionBase {
  public:
    explicit Session(std::shared_ptr<FaultInjector> faults);
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

    // The service's end, in two steps. First no call gets through any more; callable with locks of
    // the client held.
    void declareDead();
    // Then everything goes; this may destroy the client.
    void release();

    bool isLive() const;

  private:
    enum class State { Fresh, Initialised, Open, Closed, Dead };

    template <typename Act>
    Status serve(const char* operation, Error* result, const Act& act);
    template <typename Give>
    Status command(const char* operation, Error* result, const Give& give);

    // What each operation does once no fault stands in its way; mLock is held.
    Error openHeld();
    Error queueHeld(Port port, const VppBuffer& buffer, Manner manner);
    Error reconfigureHeld(const PortParam& input, const PortParam& output, Answer answer);

    bool isDead() const;
    bool isRunning() const { return mState == State::Initialised || mState == State::Open; }
    void moveTo(State state);
    // Ends the engine, with mLock not held: the client's object goes with it.
    void end(State state);

    const std::shared_ptr<FaultInjector> mFaults;
    Pause mPause;

    mutable std::mutex mLock;
    State mState = State::Fresh;
    PortSizes mSizes;
    BufferImporter mImporter;
    std::shared_ptr<Engine> mEngine;
};

}  // namespace qoz::host::vppservice
