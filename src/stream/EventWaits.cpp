// The commands that the service answers with an event: flush, reconfigure, drain.
#include <Rgb2Yuv.h>
#include <qoz/VppComponent.h>

#include "session/Log.h"
#include "stream/VppUtils.h"

namespace android {

using ::aidl::vendor::vuq::hardware::vpp::VppError;
using ::aidl::vendor::vuq::hardware::vpp::VppPort;

namespace {

// Says for as long as a command runs, its call into the service included, that it does.
class Awaiting {
  public:
    Awaiting(std::atomic<const char*>& awaited, const char* command) : mAwaited(awaited) {
        mAwaited.store(command, std::memory_order_relaxed);
    }
    ~Awaiting() { mAwaited.store("nothing", std::memory_order_relaxed); }

    Awaiting(const Awaiting&) = delete;
    Awaiting& operator=(const Awaiting&) = delete;

  private:
    std::atomic<const char*>& mAwaited;
};

}  // namespace

// Waits, bounded, until `done` holds. The flags are cleared under mEventLock before the service is
// asked and set under it by the handlers, so an answer that comes before the wait is not lost.
template <typename Done>
bool VppComponent::waitForEvent(std::unique_lock<std::mutex>& lock, const char* operation,
                                Done done) {
    const auto end = std::chrono::steady_clock::now() + mWaitLimit;
    if (mEventCond.wait_until(lock, end, done)) return true;
    VPP_LOGE("%s: no answer from vpp", operation);
    return false;
}

bool VppComponent::processFlush_l(bool withYuvPool) {
    if (!isEnabled("processFlush_l")) return false;
    bool flushed = false;
    {
        std::unique_lock lock(mEventLock);
        const base::ScopedLockAssertion held(mEventLock);
        const Awaiting awaiting(mAwaited, "flush");
        VPP_LOGI("%s", "processFlush_l");
        mInputFlushDone = false;
        mOutputFlushDone = false;
        VppError inErr = VppError::VPP_OK;
        VppError outErr = VppError::VPP_OK;
        (void)mVpp->flush(VppPort::INPUT, &inErr);
        (void)mVpp->flush(VppPort::OUTPUT, &outErr);
        if (inErr != VppError::VPP_OK || outErr != VppError::VPP_OK) {
            VPP_LOGE("failed to flush vpp");
        } else {
            flushed = waitForEvent(lock, "processFlush_l", [this]() REQUIRES(mEventLock) {
                return mInputFlushDone && mOutputFlushDone;
            });
        }
        clearExtradataPool();
        if (withYuvPool) clearYuvPool();
        if (mRgb2Yuv != nullptr) mRgb2Yuv->clearOpenGLResources();
    }
    releaseHeldSlots();  // without mEventLock: a binder thread never waits for the client's code
    return flushed;
}

bool VppComponent::processReconfig_l(uint32_t width, uint32_t height, uint32_t format) {
    if (VppUtils::GetSupportedColor(format) < 0) {
        VPP_LOGE("vpp didn't support format:%u", format);
        return false;
    }
    if (!isEnabled("processReconfig_l")) return false;
    std::unique_lock lock(mEventLock);
    const base::ScopedLockAssertion held(mEventLock);
    const Awaiting awaiting(mAwaited, "reconfigure");
    VPP_LOGI("%s: %u, %u, %u", "processReconfig_l", width, height, format);
    mWidth = width;
    mHeight = height;
    mFormat = format;
    checkDownscaleAndSetExpectedResolution();
    VppPortParam input;
    VppPortParam output;
    createVppPort(&input, mInPortWidth, mInPortHeight, format);
    createVppPort(&output, mExpectedOutWidth, mExpectedOutHeight, format);

    mReconfigDone = false;
    mReconfigFailed = false;
    VppError err = VppError::VPP_OK;
    (void)mVpp->reconfigure(input, output, &err);
    if (err != VppError::VPP_OK) {
        VPP_LOGE("failed to reconfig vpp");
        return false;
    }
    const bool answered = waitForEvent(lock, "processReconfig_l", [this]() REQUIRES(mEventLock) {
        return mReconfigDone || mReconfigFailed;
    });
    if (answered && !mReconfigDone) VPP_LOGE("%s: vpp answered with an error", "processReconfig_l");
    return mReconfigDone;
}

bool VppComponent::processDrainDone_l() {
    if (!isEnabled("processDrainDone_l")) return false;
    std::unique_lock lock(mEventLock);
    const base::ScopedLockAssertion held(mEventLock);
    const Awaiting awaiting(mAwaited, "drain");
    VPP_LOGI("%s", "processDrainDone_l");
    mDrainDone = false;
    VppError err = VppError::VPP_OK;
    (void)mVpp->drain(&err);
    if (err != VppError::VPP_OK) {
        VPP_LOGE("failed to drain vpp");
        return false;
    }
    return waitForEvent(lock, "processDrainDone_l",
                        [this]() REQUIRES(mEventLock) { return mDrainDone; });
}

void VppComponent::flushsync() {
    // A flush holds mLock, which a start on the worker needs: let that finish first.
    if (!awaitPendingStart("flushsync")) return;
    const std::lock_guard lock(mLock);
    VPP_LOGI("%s", "flushsync");
    if (mStatus != ACTIVE) return;
    mStatus = PENDING;
    if (!processFlush_l(true)) {
        mStatus = ERROR;
        return;
    }
    mStatus = IDLE;
    VPP_LOGI("Flush OBD queue");
    drainOBDQueue();
}

void VppComponent::onVppEFD(const FlushDone& done) {
    const std::lock_guard lock(mEventLock);
    const bool input = done.port == static_cast<int32_t>(VppPort::INPUT);
    (input ? mInputFlushDone : mOutputFlushDone) = true;
    mEventCond.notify_one();
}

void VppComponent::onVppERD(const ReconfigDone& done) {
    const std::lock_guard lock(mEventLock);
    const bool ok = done.status == static_cast<int32_t>(VppError::VPP_OK);
    (ok ? mReconfigDone : mReconfigFailed) = true;
    mEventCond.notify_one();
}

void VppComponent::onVppEDD() {
    const std::lock_guard lock(mEventLock);
    mDrainDone = true;
    mEventCond.notify_one();
}

// Waits, bounded, for a Start that config() has posted: one start runs at a time, and nobody
// touches the frame state while the worker does. A callback on the worker goes on: it would wait
// for itself.
bool VppComponent::awaitPendingStart(const char* operation) {
    if (!mStartPending || !mOBDThreadRunning || onWorkerThread()) return true;
    std::unique_lock lock(mOBDStateLock);
    if (mOBDStateCond.wait_until(lock, std::chrono::steady_clock::now() + mWaitLimit,
                                 [this] { return !mStartPending; })) {
        return true;
    }
    VPP_LOGE("%s: the start that config asked for is still pending", operation);
    return false;
}

}  // namespace android
