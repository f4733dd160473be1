#include <cutils/properties.h>
#include <qoz/VppComponent.h>

#include <new>

#include "session/Log.h"
#include "stream/VppUtils.h"

namespace android {
namespace {

constexpr uint32_t kModeFrc = 1;  // with optional upscaling
constexpr uint32_t kModeAis = 2;  // upscaling to twice the size, no frame-rate conversion
constexpr uint32_t kMaxInterpFactor = 3;

uint32_t clampedFactor(uint32_t interpFactor) {
    return interpFactor <= kMaxInterpFactor ? interpFactor : 1;
}

}  // namespace

uint32_t VppComponent::calculateOutBufferReqsPerFrame(ConfigParams params) {
    const uint32_t factor = clampedFactor(params.interpFactor);
    mAisEnabled = params.mode == kModeFrc && (params.upscaleIndex == 1 || params.upscaleIndex == 2);
    if (factor == 0) return 1;
    return factor + 2 - (mAisEnabled ? 1 : 0);
}

void VppComponent::config(uint32_t width, uint32_t height, uint32_t format, ConfigParams params,
                          bool wait) {
    if (onWorkerThread()) {
        VPP_LOGE("%s: called from within a callback of its own worker", "config");
        return;
    }
    if (!awaitPendingStart("config")) return;
    mWidth = width;
    mHeight = height;
    mFormat = format;
    applyMode(params);
    try {
        if (mMvEnabled) holdSlot(-1);
    } catch (const std::bad_alloc&) {
        VPP_LOGE("%s: out of memory", "config");  // sources are then released a frame early
    }
    publishStreamFacts();
    {
        // The pending mark first: whoever sees the command sees the mark.
        const std::lock_guard lock(mOBDCmdLock);
        mStartPending.store(true, std::memory_order_release);
        storeOBDCmd(OBD_CMD_START);
    }
    if (!mOBDThreadRunning) {
        VPP_LOGE("%s: component is not enabled, nothing will start the session", "config");
        return;
    }
    if (!wait) return;
    std::unique_lock lock(mOBDStateLock);
    const base::ScopedLockAssertion held(mOBDStateLock);
    mOBDStateCond.wait_until(lock, std::chrono::steady_clock::now() + mWaitLimit,
                             [this]() REQUIRES(mOBDStateLock) { return mStartDone; });
}

// What the settings mean for the stream, before a session is asked for it.
void VppComponent::applyMode(const ConfigParams& params) {
    mMvEnabled = mDsEnabled = property_get_bool("debug.vpp.frc.game.ext.mbi", 1) != 0;
    mOutBufReqsPerFrame = calculateOutBufferReqsPerFrame(params);
    mInterpFactor = clampedFactor(params.interpFactor);
    mDoubleOutput = params.mode == kModeAis;
    if (mDoubleOutput) mMvEnabled = mDsEnabled = false;
    VPP_LOGI("%s qoz needs %u output buffers per frame", "config", mOutBufReqsPerFrame);
    if (params.mode != kModeFrc) return;

    mUpscaleIndex = params.upscaleIndex;
    if (params.upscaleIndex == 2) {
        mUpscaleRatio = 2.0F;
        mDsEnabled = false;
        mAisEnabled = true;
        VPP_LOGI("Disable DS buffer for G-FRC+ AIS 2x");
    } else if (params.upscaleIndex == 1) {
        VPP_LOGI("Enable both DS and MV buffers for G-FRC+ AIS 1.5x");
        mUpscaleRatio = 1.5F;
        mAisEnabled = true;
    }
    if (mInterpFactor == 0) {
        VPP_LOGI("Disable MV buffer for FRC 1x");
        mMvEnabled = false;
    }
}

bool VppComponent::isInputPortEnabled(uint32_t width, uint32_t height, uint32_t format) {
    if (!awaitPendingStart("isInputPortEnabled")) return false;
    const std::lock_guard lock(mLock);
    return mStatus == ACTIVE && mWidth == width && mHeight == height && mFormat == format;
}

void VppComponent::createVppPort(VppPortParam* port, uint32_t width, uint32_t height,
                                 uint32_t format) {
    fillVppPort(port, width, height, VppUtils::portColorFormat(format));
    VPP_LOGI("vpp reconfigure with port resolution: %ux%u", width, height);
}

// Rows have no padding on either port.
void VppComponent::fillVppPort(VppPortParam* port, uint32_t width, uint32_t height,
                               int32_t colorFormat) {
    port->height = static_cast<int32_t>(height);
    port->width = static_cast<int32_t>(width);
    port->stride = port->width;
    port->scanlines = port->height;
    port->colorFormat = colorFormat;
}

}  // namespace android
