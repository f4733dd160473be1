// SPDX-License-Identifier: Apache-2.0
#include "stream/Reconfiguration.h"

#include "stream/VppUtils.h"

namespace android {

// The ports are computed before the service is asked, and are kept if it refuses: the following
// frames have the new size regardless of the answer, and the converter must match them. After a
// refusal the queued records do not fit the ports of the session, which refuses each of them until
// a frame of the old size or a new start makes both sides agree again.
bool Reconfiguration::run(uint32_t width, uint32_t height, uint32_t format, WaitBudget& waits) {
    if (VppUtils::GetSupportedColor(format) < 0) {
        VPP_LOGE("vpp didn't support format:%u", format);
        return false;
    }
    if (!mService.hasSession()) {
        VPP_LOGE("processReconfig_l: component is not enabled");
        return false;
    }
    VPP_LOGI("processReconfig_l: %u, %u, %u", width, height, format);
    mPorts.setSource(width, height, format);
    mPorts.resolve();
    Ports::PortParam input;
    Ports::PortParam output;
    mPorts.create(&input, mPorts.inputWidth(), mPorts.inputHeight(), format);
    mPorts.create(&output, mPorts.outputWidth(), mPorts.outputHeight(), format);
    return mEvents.reconfigure(input, output, waits);
}

}  // namespace android
