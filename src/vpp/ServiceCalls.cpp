// SPDX-License-Identifier: Apache-2.0
#include "vpp/ServiceCalls.h"

#include <new>
#include <utility>

namespace android {
namespace {

using vpp::VppError;

constexpr int32_t kSessionFlags = 0;

// Presets the result to VPP_OK, makes the call, and returns the result. Ignores the binder status.
template <typename Call>
VppError resultOf(Call call) {
    VppError result = VppError::VPP_OK;
    try {
        (void)call(&result);
    } catch (const std::bad_alloc&) {
        return VppError::VPP_ERR_NO_MEM;
    }
    return result;
}

}  // namespace

// A transport error leaves the pointer null. This is the only call that reports such an error.
bool ServiceCalls::openSession() {
    std::shared_ptr<vpp::IVpp> session;
    (void)mService->getNewVppSession(kSessionFlags, &session);
    mSession = std::move(session);
    mClosed = false;
    return mSession != nullptr;
}

void ServiceCalls::reset() {
    mService.reset();
    mSession.reset();
}

VppError ServiceCalls::close() {
    mClosed = true;
    return resultOf([this](VppError* result) { return mSession->close(result); });
}

VppError ServiceCalls::drain() {
    return resultOf([this](VppError* result) { return mSession->drain(result); });
}

VppError ServiceCalls::flush(vpp::VppPort port) {
    return resultOf([&](VppError* result) { return mSession->flush(port, result); });
}

VppError ServiceCalls::initSession(const std::shared_ptr<vpp::IVppCallbacks>& callbacks) {
    return resultOf(
        [&](VppError* result) { return mSession->initSession(kSessionFlags, callbacks, result); });
}

VppError ServiceCalls::open() {
    if (mClosed) return VppError::VPP_ERR_STATE;
    return resultOf([this](VppError* result) { return mSession->open(result); });
}

VppError ServiceCalls::queueBuf(vpp::VppPort port, const vpp::VppBuffer& buffer) {
    return resultOf([&](VppError* result) { return mSession->queueBuf(port, buffer, result); });
}

VppError ServiceCalls::reconfigure(const vpp::VppPortParam& input,
                                   const vpp::VppPortParam& output) {
    return resultOf([&](VppError* result) { return mSession->reconfigure(input, output, result); });
}

VppError ServiceCalls::setCtrlAis(const vpp::VppCtrlAis& ctrl) {
    return resultOf([&](VppError* result) { return mSession->setCtrlAis(ctrl, result); });
}

VppError ServiceCalls::setCtrlFrc(const std::vector<vpp::VppCtrlFrcSegment>& segments) {
    return resultOf([&](VppError* result) { return mSession->setCtrlFrc(segments, result); });
}

VppError ServiceCalls::setCtrlVppMode(int32_t mode) {
    return resultOf([&](VppError* result) { return mSession->setCtrlVppMode(mode, result); });
}

VppError ServiceCalls::setParameter(vpp::VppPort port, const vpp::VppPortParam& param) {
    return resultOf([&](VppError* result) { return mSession->setParameter(port, param, result); });
}

// Returns no result, because nothing can be done about a session that does not end.
void ServiceCalls::terminateSession() {
    (void)resultOf([this](VppError*) { return mSession->terminateSession(); });
}

}  // namespace android
