// SPDX-License-Identifier: Apache-2.0
#include "stream/SessionStart.h"

#include "stream/VppUtils.h"

namespace android {
namespace {

using vpp::VppError;
using vpp::VppPort;

constexpr int32_t kVppMode = 2;

}  // namespace

bool SessionStart::start(uint32_t width, uint32_t height, uint32_t format) {
    if (begin(width, height, format)) return true;
    announceSessionPorts();
    return false;
}

// config() has announced the new ports to the getters. A session that goes on without them takes
// output buffers of its own size only.
void SessionStart::announceSessionPorts() {
    if (mStatus != Status::INIT) mPorts.publish();
}

// The service expects this order: mode, controls, ports, open. A refused mode is not a failure; it
// only omits the message. Refused controls set the state to ERROR, which a later successful start
// leaves again. Any other failure leaves the state unchanged.
bool SessionStart::begin(uint32_t width, uint32_t height, uint32_t format) {
    VPP_LOGI("processStart_l");
    if (!mService.hasSession()) {
        VPP_LOGE("processStart_l: component is not enabled");
        return false;
    }
    if (mService.setCtrlVppMode(kVppMode) == VppError::VPP_OK) VPP_LOGI("setCtrlVppMode");
    if (!configControl()) {
        VPP_LOGE("failed to config vpp");
        mStatus = Status::ERROR;
        return false;
    }
    if (VppUtils::GetSupportedColor(format) < 0) {
        VPP_LOGE("vpp didn't support format:%u", format);
        return false;
    }
    mPorts.setInputFormat(QOZFormat::kNv12Vemo);
    VPP_LOGI("processStart_l: w: %u, h: %u, infmt: %u, outfmt: %u", width, height, format,
             VppUtils::GetYUVFormat(format));
    mPorts.setSource(width, height, format);
    mPorts.resolve();
    if (!openPorts()) return false;

    const std::lock_guard<std::mutex> lock(mLock);
    mStatus = Status::ACTIVE;
    return true;
}

// The first segment applies from the beginning of the stream. Settings carried by frames add later
// segments.
bool SessionStart::configControl() {
    mControl.restart();
    if (mSettings.doubleOutput()) {
        VPP_LOGI("configVppAis");
        return mControl.configAis();
    }
    VPP_LOGI("configVppFrc");
    return mControl.configFrc(0);
}

// Both ports carry converted frames, whatever the format of the sources is. If the input port is
// refused, the output port is not set, and the message reports it as VPP_OK.
bool SessionStart::openPorts() {
    const int32_t color = VppUtils::portColorFormat(QOZFormat::kNv12Vemo);
    Ports::PortParam input;
    Ports::fill(&input, mPorts.inputWidth(), mPorts.inputHeight(), color);
    VPP_LOGI("vpp start with input port resolution: %ux%u", mPorts.inputWidth(),
             mPorts.inputHeight());
    Ports::PortParam output;
    Ports::fill(&output, mPorts.outputWidth(), mPorts.outputHeight(), color);
    VPP_LOGI("vpp start with out port resolution: %ux%u", mPorts.outputWidth(),
             mPorts.outputHeight());

    const VppError inErr = mService.setParameter(VppPort::INPUT, input);
    const VppError outErr = inErr == VppError::VPP_OK
                                ? mService.setParameter(VppPort::OUTPUT, output)
                                : VppError::VPP_OK;
    VPP_LOGI("vpp set parameter input err: %u output err: %u", static_cast<uint32_t>(inErr),
             static_cast<uint32_t>(outErr));
    if (inErr != VppError::VPP_OK || outErr != VppError::VPP_OK) return false;

    const VppError err = mService.open();
    VPP_LOGI("vpp open ret: %u", static_cast<uint32_t>(err));
    return err == VppError::VPP_OK;
}

}  // namespace android
