#include <Rgb2Yuv.h>
#include <processgroup/sched_policy.h>
#include <pthread.h>
#include <qoz/VppComponent.h>

#include <exception>
#include <new>
#include <utility>

#include "session/Log.h"
#include "vpp/VppCallbacks.h"

namespace android {

using ::aidl::vendor::vuq::hardware::vpp::VppError;

bool VppComponent::enable(const std::string& name, IQOZCallback* callback, bool debug) {
    const std::lock_guard lock(mLock);
    try {
        return enableLocked(name, callback, debug);
    } catch (const std::bad_alloc&) {
        VPP_LOGE("%s: out of memory", "enable");
        return false;
    }
}

bool VppComponent::enableLocked(const std::string& name, IQOZCallback* callback, bool debug) {
    if (mStatus != UNINIT) {
        VPP_LOGE("previous cmp in not uninit");
        return false;
    }
    adoptName(name);
    setClient(callback);
    if (debug) mStatus.debug();
    VPP_LOGI("%s", "enable");
    if (!acquireVppService()) {
        VPP_LOGE("unable to get vpp service");
        return false;
    }
    if (!openSession() || !startWorker()) return false;
    mStatus = INIT;
    VPP_LOGI("Success enable vpp service");
    return true;
}

bool VppComponent::openSession() {
    VPP_LOGI("%s", "getNewVppSession");
    std::shared_ptr<IVpp> session;
    (void)mVppService->getNewVppSession(0, &session);
    mVpp = std::move(session);
    if (mVpp == nullptr) {
        VPP_LOGE("unable to get new session from vpp service");
        return false;
    }
    const std::shared_ptr<IVppCallbacks> callbacks = IVppCallbacks::makeFor(weak_from_this());
    if (callbacks == nullptr) {
        VPP_LOGE("Cannot allocate IVppCallbacks");
        return false;
    }
    VPP_LOGI("%s", "initSession");
    VppError result = VppError::VPP_OK;
    (void)mVpp->initSession(0, callbacks, &result);
    if (result != VppError::VPP_OK) {
        VPP_LOGE("failed to init vpp");
        mStatus = ERROR;
        return false;
    }
    return true;
}

// Starts the worker and waits, bounded, for its answer to Init; no answer in time is no error.
bool VppComponent::startWorker() {
    // In place of what was posted while there was no worker. No command is in progress, so there is
    // none to wait for, and mOBDCmdLock is never taken with mLock held: the worker has it the other
    // way round when it carries out a Start.
    storeOBDCmd(OBD_CMD_INIT);
    mStartPending = false;
    mOBDThreadRunning.store(true, std::memory_order_release);
    try {
        mOBDThread = std::thread(&VppComponent::VppOBDworkerThread, this);
    } catch (const std::exception& error) {
        VPP_LOGE("cannot start the output worker: %s", error.what());
        mOBDThreadRunning = false;
        closeSession();
        mVppService.reset();
        mVpp.reset();
        return false;
    }
    const pthread_t worker = mOBDThread.native_handle();
    const sched_param priority{.sched_priority = 2};
    if (pthread_setschedparam(worker, SCHED_FIFO, &priority) != 0) {
        VPP_LOGE_BARE("Couldn't set SCHED_FIFO for EventThread");
    }
    set_sched_policy(pthread_gettid_np(worker), SP_FOREGROUND);
    if (cpusets_enabled()) set_cpuset_policy(0, SP_SYSTEM);  // the calling thread

    std::unique_lock lock(mOBDStateLock);
    const base::ScopedLockAssertion held(mOBDStateLock);
    mOBDStateCond.wait_until(lock, std::chrono::steady_clock::now() + mWaitLimit,
                             [this]() REQUIRES(mOBDStateLock) { return mOBDThreadReady; });
    return true;
}

void VppComponent::disable() {
    if (onWorkerThread()) {
        VPP_LOGE("%s: called from within a callback of its own worker", "disable");
        return;
    }
    shutDown();
}

void VppComponent::shutDown() {
    status state;
    {
        const std::lock_guard lock(mLock);
        VPP_LOGI("%s", "disable");
        state = mStatus.get();
    }
    if (state == UNINIT) return;
    if (state != ERROR) {
        constexpr int kPolls = 600;
        constexpr auto kPollPause = std::chrono::microseconds(2000);
        for (int i = 0; i < kPolls && mStartPending && !onWorkerThread(); ++i) {
            VPP_LOGI("Wait for VPP start complete .. ");
            std::this_thread::sleep_for(kPollPause);
        }
        closeSession();
    }
    VPP_LOGI("Start exiting VPP OBD thread after vpp instance release ...");
    stopWorker();
    VPP_LOGI("component thread is terminated");
    if (state != ERROR) {
        // Only now: a start that outlasted the polls above was still using the session.
        mVppService.reset();
        mVpp.reset();
    }
    mSlotList.clear();
    mPublishedHeld.store(0, std::memory_order_relaxed);
    delete std::exchange(mRgb2Yuv, nullptr);
    clearExtradataPool();
    clearYuvPool();
    mStatus = UNINIT;
}

void VppComponent::closeSession() {
    VppError result = VppError::VPP_OK;
    (void)mVpp->close(&result);
    if (result != VppError::VPP_OK) VPP_LOGI("vppClose error=%s", toString(result).c_str());
    (void)mVpp->terminateSession();
}

void VppComponent::stopWorker() {
    if (mOBDThread.joinable()) {
        if (onWorkerThread()) {
            leaveWorkerThread();
        } else {
            postOBDCmd(OBD_CMD_EXIT);
            mOBDThread.join();
        }
    }
    mOBDThreadRunning = false;
}

}  // namespace android
