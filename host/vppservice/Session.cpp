// SPDX-License-Identifier: Apache-2.0
#include "host/vppservice/Session.h"

#include <host/platform/ResourceCounters.h>

#include <system_error>
#include <utility>

namespace qoz::host::vppservice {
namespace {

// The values that the operations accept.
constexpr int32_t kFrameMode = 2;
constexpr int32_t kAisMode = 2;
constexpr int32_t kMostAisStrength = 100;
constexpr int32_t kLargestSide = 8192;  // pixels

bool isPort(VppPort port) {
    return port == VppPort::INPUT || port == VppPort::OUTPUT;
}

// Each of these colour format codes of the interface stands for NV12.
bool isNv12Code(int32_t code) {
    return code == 0 || code == 3 || code == 8;
}

// Checks the parameters of a port. Planes with padding are not supported.
VppError check(const VppPortParam& param) {
    const auto isSide = [](int32_t side) { return side > 0 && side <= kLargestSide; };
    if (!isSide(param.width) || !isSide(param.height)) return VppError::VPP_ERR_PARAM;
    if (param.stride != param.width || param.scanlines != param.height) {
        return VppError::VPP_ERR_INVALID_CFG;
    }
    return isNv12Code(param.colorFormat) ? VppError::VPP_OK : VppError::VPP_ERR_INVALID_CFG;
}

FrameSize sizeOf(const VppPortParam& param) {
    return {static_cast<uint32_t>(param.width), static_cast<uint32_t>(param.height)};
}

ndk::ScopedAStatus deadObject() {
    return ndk::ScopedAStatus::fromStatus(STATUS_DEAD_OBJECT);
}

}  // namespace

Session::Session(std::shared_ptr<FaultInjector> faults, std::shared_ptr<Quota> quota)
    : mFaults(std::move(faults)), mImporter(std::move(quota)) {
    resourceCounters().sessionsMade.fetch_add(1, std::memory_order_relaxed);
    resourceCounters().sessionsLive.fetch_add(1, std::memory_order_relaxed);
}

Session::~Session() {
    end(State::Closed);
}

// Every operation runs through this function. It applies the fault that is armed for the operation,
// calls `act` unless the fault replaces it, and writes the result. A dead session returns a dead
// object and does nothing. A session that dies during the operation returns a dead object too, but
// the operation may have been carried out.
template <typename Act>
ndk::ScopedAStatus Session::serve(const char* operation, Error* result, const Act& act) {
    if (isDead()) return deadObject();
    if (result == nullptr) return Status::fromStatus(STATUS_UNKNOWN_TRANSACTION);
    const FaultEffect effect = mFaults->effectOn(operation);
    if (effect.lost) return deadObject();
    Error answer = Error::VPP_OK;
    if (!effect.answer || effect.done) answer = act(effect.manner);
    mPause.sleepFor(effect.delay);
    if (isDead()) return deadObject();
    *result = effect.answer.value_or(answer);
    return Status::ok();
}

// Runs a command that a callback answers; `give` passes it to the engine. The session must be open.
// If a fault asks for it, the answer is delivered on the calling thread before the call returns.
// mLock is not held then, since the client may call the session from its callback.
template <typename Give>
ndk::ScopedAStatus Session::command(const char* operation, Error* result, const Give& give) {
    return serve(operation, result, [&](Manner manner) {
        Answer answer{manner};
        std::future<std::packaged_task<void()>> nested;
        if (manner == Manner::Within) {
            answer.within = std::make_shared<NestedCall>();
            nested = answer.within->get_future();
        }
        {
            const std::lock_guard lock(mLock);
            if (mState != State::Open) return Error::VPP_ERR_STATE;
            const Error error = give(std::move(answer));
            if (error != Error::VPP_OK) return error;
        }
        try {
            if (nested.valid()) nested.get()();
        } catch (const std::future_error&) {
            return Error::VPP_OK;  // the session ended before its answer
        }
        return Error::VPP_OK;
    });
}

ndk::ScopedAStatus Session::close(Error* result) {
    return serve("close", result, [this](Manner) {
        {
            const std::lock_guard lock(mLock);
            if (!isRunning()) return Error::VPP_ERR_STATE;
        }
        end(State::Closed);
        return Error::VPP_OK;
    });
}

ndk::ScopedAStatus Session::terminateSession() {
    Error ignored = Error::VPP_OK;
    return serve("terminateSession", &ignored, [this](Manner) {
        end(State::Closed);
        return Error::VPP_OK;
    });
}

// Creates the engine, which holds the client's object from now on.
ndk::ScopedAStatus Session::initSession(int32_t flags,
                                        const std::shared_ptr<vpp::IVppCallbacks>& callbacks,
                                        Error* result) {
    return serve("initSession", result, [&](Manner) {
        const std::lock_guard lock(mLock);
        if (mState != State::Fresh) return Error::VPP_ERR_STATE;
        if (flags != 0 || callbacks == nullptr) return Error::VPP_ERR_PARAM;
        mEngine = std::make_shared<Engine>(callbacks, mFaults);
        moveTo(State::Initialised);
        return Error::VPP_OK;
    });
}

ndk::ScopedAStatus Session::open(Error* result) {
    return serve("open", result, [this](Manner) {
        const std::lock_guard lock(mLock);
        return openHeld();
    });
}

// Opening an open session succeeds and changes nothing.
VppError Session::openHeld() {
    if (mState == State::Open) return Error::VPP_OK;
    const FrameSize unset;
    const bool ready =
        mState == State::Initialised && mHasMode && mSizes.input != unset && mSizes.output != unset;
    if (!ready) return Error::VPP_ERR_STATE;
    try {
        mEngine->start();
    } catch (const std::system_error&) {
        return Error::VPP_ERR_RESOURCES;
    }
    moveTo(State::Open);
    return Error::VPP_OK;
}

ndk::ScopedAStatus Session::setParameter(Port port, const PortParam& param, Error* result) {
    return serve("setParameter", result, [&](Manner) {
        const std::lock_guard lock(mLock);
        if (!isRunning()) return Error::VPP_ERR_STATE;
        if (!isPort(port)) return Error::VPP_ERR_PARAM;
        const Error error = check(param);
        if (error != Error::VPP_OK) return error;
        (port == Port::INPUT ? mSizes.input : mSizes.output) = sizeOf(param);
        return Error::VPP_OK;
    });
}

ndk::ScopedAStatus Session::setCtrlVppMode(int32_t mode, Error* result) {
    return serve("setCtrlVppMode", result, [&](Manner) {
        const std::lock_guard lock(mLock);
        if (!isRunning()) return Error::VPP_ERR_STATE;
        if (mode != kFrameMode) return Error::VPP_ERR_INVALID_CFG;
        mHasMode = true;
        return Error::VPP_OK;
    });
}

ndk::ScopedAStatus Session::setCtrlFrc(const std::vector<vpp::VppCtrlFrcSegment>& segments,
                                       Error* result) {
    return serve("setCtrlFrc", result, [&](Manner) {
        const std::lock_guard lock(mLock);
        return isRunning() ? mEngine->setFrc(segments) : Error::VPP_ERR_STATE;
    });
}

// AIS and frame-rate control exclude each other, so the AIS control removes the FRC segments. The
// simulation does nothing else for AIS.
ndk::ScopedAStatus Session::setCtrlAis(const vpp::VppCtrlAis& control, Error* result) {
    return serve("setCtrlAis", result, [&](Manner) {
        const std::lock_guard lock(mLock);
        if (!isRunning()) return Error::VPP_ERR_STATE;
        const bool known = control.mode == kAisMode && control.param >= 0 &&
                           control.param <= kMostAisStrength && control.keyValues.empty();
        if (!known) return Error::VPP_ERR_INVALID_CFG;
        mEngine->clearFrc();
        return Error::VPP_OK;
    });
}

ndk::ScopedAStatus Session::queueBuf(Port port, const VppBuffer& buffer, Error* result) {
    return serve("queueBuf", result, [&](Manner manner) {
        const std::lock_guard lock(mLock);
        return queueHeld(port, buffer, manner);
    });
}

// Imports the buffer with the sizes that are set now: a later change does not affect queued
// buffers.
VppError Session::queueHeld(Port port, const VppBuffer& buffer, Manner manner) {
    if (mState != State::Open) return Error::VPP_ERR_STATE;
    if (!isPort(port)) return Error::VPP_ERR_PARAM;
    ImportedBuffer imported;
    const Error error = mImporter.take(port, mSizes, buffer, &imported);
    if (error != Error::VPP_OK) return error;
    imported.manner = manner;
    if (manner != Manner::Untold) mImporter.hold(port, buffer, &imported);
    if (port == Port::INPUT) {
        mEngine->queueInput(std::move(imported));
    } else {
        mEngine->queueOutput(std::move(imported));
    }
    return Error::VPP_OK;
}

ndk::ScopedAStatus Session::flush(Port port, Error* result) {
    return command("flush", result, [&](Answer answer) REQUIRES(mLock) {
        if (!isPort(port)) return Error::VPP_ERR_PARAM;
        mEngine->flush(port, std::move(answer));
        return Error::VPP_OK;
    });
}

ndk::ScopedAStatus Session::reconfigure(const PortParam& input, const PortParam& output,
                                        Error* result) {
    return command("reconfigure", result, [&](Answer answer) REQUIRES(mLock) {
        return reconfigureHeld(input, output, std::move(answer));
    });
}

// Both sizes are checked first and stored last, so that a refused reconfiguration, or one that
// fails on allocation failure, changes nothing.
VppError Session::reconfigureHeld(const PortParam& input, const PortParam& output, Answer answer) {
    for (const PortParam* param : {&input, &output}) {
        const Error error = check(*param);
        if (error != Error::VPP_OK) return error;
    }
    mEngine->reconfigure(std::move(answer));
    mSizes = {sizeOf(input), sizeOf(output)};
    return Error::VPP_OK;
}

ndk::ScopedAStatus Session::drain(Error* result) {
    return command("drain", result, [this](Answer answer) REQUIRES(mLock) {
        mEngine->drain(std::move(answer));
        return Error::VPP_OK;
    });
}

void Session::declareDead() {
    {
        const std::lock_guard lock(mLock);
        moveTo(State::Dead);
    }
    mPause.end();
}

void Session::release() {
    end(State::Dead);
}

bool Session::isLive() const {
    const std::lock_guard lock(mLock);
    return mState < State::Closed;
}

bool Session::isDead() const {
    const std::lock_guard lock(mLock);
    return mState == State::Dead;
}

// A closed session can still die, but no state follows the death. The resource counters count the
// session down once, at its first final state.
void Session::moveTo(State state) {
    if (mState < State::Closed && state >= State::Closed) {
        resourceCounters().sessionsLive.fetch_sub(1, std::memory_order_relaxed);
    }
    if (mState != State::Dead) mState = state;
}

// The engine is stopped after the lock is released, because stopping waits for a callback that may
// call this session.
void Session::end(State state) {
    std::shared_ptr<Engine> engine;
    {
        const std::lock_guard lock(mLock);
        moveTo(state);
        engine.swap(mEngine);
    }
    mPause.end();
    if (engine != nullptr) engine->stop();
}

}  // namespace qoz::host::vppservice
