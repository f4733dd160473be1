// SPDX-License-Identifier: Apache-2.0
#include "host/vppd/RemoteSession.h"

#include <android/log.h>

#include <optional>
#include <system_error>
#include <utility>

#include "host/vppd/Names.h"
#include "host/vppd/Records.h"
#include "host/vppd/RemoteCall.h"

namespace qoz::host::vppd {

namespace {

SteadyTime callEnd() {
    return std::chrono::steady_clock::now() + kCallLimit;
}

ndk::ScopedAStatus deadObject() {
    return ndk::ScopedAStatus::fromStatus(STATUS_DEAD_OBJECT);
}

}  // namespace

using Status = ndk::ScopedAStatus;

RemoteSession::RemoteSession(std::shared_ptr<Bus> bus, std::string owner, const std::string& path)
    : mBus(std::move(bus)),
      mOwner(std::move(owner)),
      mProxy(sdbus::createProxy(mBus->connection(), mOwner, path)) {}

RemoteSession::~RemoteSession() {
    release();
    if (isDead()) return;
    try {
        mProxy->callMethod("Release").onInterface(kSessionInterface).dontExpectReply();
    } catch (const sdbus::Error&) {
        // The service ends the session when this connection leaves the bus.
    }
}

void RemoteSession::release() {
    removeReceiver(callEnd());
}

// The session may die while the call waits. In that case the answer is ignored.
template <typename... Args>
Status RemoteSession::forward(SteadyTime end, Error* result, const char* method,
                              const Args&... args) {
    if (isDead()) return deadObject();
    if (result == nullptr) return Status::fromStatus(STATUS_UNKNOWN_TRANSACTION);
    try {
        const auto answer = callWithin<int32_t>(end, *mProxy, kSessionInterface, method, args...);
        if (isDead()) return deadObject();
        *result = static_cast<Error>(answer);
        return Status::ok();
    } catch (const sdbus::Error& error) {
        __android_log_print(ANDROID_LOG_WARN, "vppd", "%s failed: %s", method, error.what());
        if (!wasNotDelivered(error)) return deadObject();
        *result = Error::VPP_ERR_RESOURCES;
        return Status::ok();
    }
}

template <typename... Args>
Status RemoteSession::forward(Error* result, const char* method, const Args&... args) {
    return forward(callEnd(), result, method, args...);
}

Status RemoteSession::close(Error* result) {
    const SteadyTime end = callEnd();
    Status status = forward(end, result, "Close");
    if (status.isOk() && *result == Error::VPP_OK) removeReceiver(end);
    return status;
}

Status RemoteSession::terminateSession() {
    const SteadyTime end = callEnd();
    Error ignored = Error::VPP_OK;
    Status status = forward(end, &ignored, "TerminateSession");
    if (status.isOk()) removeReceiver(end);
    return status;
}

// The receiver is installed before the call, so that a death during the call releases it, or is
// noticed by the call, which then removes it.
Status RemoteSession::initSession(int32_t flags,
                                  const std::shared_ptr<vpp::IVppCallbacks>& callbacks,
                                  Error* result) {
    if (result == nullptr) return Status::fromStatus(STATUS_UNKNOWN_TRANSACTION);
    const SteadyTime end = callEnd();
    std::string path = kNoSession;
    bool installed = false;
    try {
        installed = callbacks != nullptr && installReceiver(callbacks, &path);
    } catch (const std::system_error& error) {
        __android_log_print(ANDROID_LOG_ERROR, "vppd", "initSession: %s", error.what());
        *result = Error::VPP_ERR_RESOURCES;
        return Status::ok();
    }
    Status status =
        forward(end, result, "InitSession", flags, mBus->name(), sdbus::ObjectPath(path));
    const bool taken = status.isOk() && *result == Error::VPP_OK;
    if (!taken && installed) removeReceiver(end);
    return status;
}

// Creates the receiver and returns its path. Returns false if there already is one.
bool RemoteSession::installReceiver(const std::shared_ptr<vpp::IVppCallbacks>& callbacks,
                                    std::string* path) {
    auto receiver = std::make_unique<CallbackReceiver>(mBus, mOwner, callbacks);
    const std::lock_guard lock(mLock);
    if (mReceiver != nullptr) return false;
    *path = receiver->path();
    mReceiver = std::move(receiver);
    return true;
}

Status RemoteSession::open(Error* result) {
    return forward(result, "Open");
}

Status RemoteSession::drain(Error* result) {
    return forward(result, "Drain");
}

Status RemoteSession::flush(Port port, Error* result) {
    return forward(result, "Flush", static_cast<int32_t>(port));
}

Status RemoteSession::queueBuf(Port port, const vpp::VppBuffer& buffer, Error* result) {
    if (result == nullptr) return Status::fromStatus(STATUS_UNKNOWN_TRANSACTION);
    std::optional<BusBuffer> sent;
    try {
        sent = toBus(buffer);
    } catch (const std::system_error& error) {
        __android_log_print(ANDROID_LOG_ERROR, "vppd", "queueBuf: %s", error.what());
        *result = Error::VPP_ERR_RESOURCES;
        return Status::ok();
    }
    return forward(result, "QueueBuf", static_cast<int32_t>(port), *sent);
}

Status RemoteSession::reconfigure(const PortParam& input, const PortParam& output, Error* result) {
    return forward(result, "Reconfigure", toBus(input), toBus(output));
}

Status RemoteSession::setCtrlAis(const vpp::VppCtrlAis& control, Error* result) {
    return forward(result, "SetCtrlAis", toBus(control));
}

Status RemoteSession::setCtrlFrc(const std::vector<vpp::VppCtrlFrcSegment>& segments,
                                 Error* result) {
    return forward(result, "SetCtrlFrc", toBus(segments));
}

Status RemoteSession::setCtrlVppMode(int32_t mode, Error* result) {
    return forward(result, "SetCtrlVppMode", mode);
}

Status RemoteSession::setParameter(Port port, const PortParam& param, Error* result) {
    return forward(result, "SetParameter", static_cast<int32_t>(port), toBus(param));
}

// The client's object is released on the calling thread, without the lock.
void RemoteSession::removeReceiver(SteadyTime end) {
    std::unique_ptr<CallbackReceiver> receiver;
    {
        const std::lock_guard lock(mLock);
        receiver.swap(mReceiver);
    }
    if (receiver != nullptr) receiver->stop(end);
}

}  // namespace qoz::host::vppd
