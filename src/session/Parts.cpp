// SPDX-License-Identifier: Apache-2.0
#include "session/Parts.h"

namespace android {

// Gives each part references to the members it works on; this is the only place that does. The
// order is that of the declarations, so a part is given only parts that already exist.
VppComponent::Parts::Parts(VppComponent& c)
    : log(c.mLogFlags, c.mName, &c),
      client(c.mCallback),
      service(c.mVppService, c.mVpp),
      events({c.mReconfigDone, c.mInputFlushDone, c.mOutputFlushDone, c.mDrainDone, c.mEventLock,
              c.mEventCond},
             service, log),
      settings({c.mAisEnabled, c.mOutBufReqsPerFrame, c.mInterpFactor, c.mMvEnabled, c.mDsEnabled,
                c.mDoubleOutput, c.mUpscaleIndex, c.mUpscaleRatio},
               log, facts),
      ports({c.mWidth, c.mHeight, c.mFormat, c.mInputFormat, c.mInPortWidth, c.mInPortHeight,
             c.mExpectedOutWidth, c.mExpectedOutHeight, c.mMaxWidth, c.mMaxHeight, c.mNeedDownscale,
             c.mNeedDownscaleResult},
            settings, log, facts),
      control(c.mFrcSegments, c.mLastOutputTimestamp, settings, service, log),
      start(settings, control, ports, service, c.mStatus, c.mLock, log),
      reconfiguration(ports, events, service, log),
      yuvPool(c.mYuvBufferMap, c.mFreeYuvIndex, c.mYuvLock, log),
      sidePool(c.mExtradataBufferMap, c.mFreeExtradataIndex, c.mExtradataLock, log),
      outstanding(c.mBufferDoneLock, c.mInputBuffersInVpp, c.mOutputBuffersInVpp),
      heldSlots(c.mSlotList, client, log, facts),
      converter({c.mRgb2Yuv, c.mPrevSourceBuffer, c.mIsFirstFrame, c.mDumpFrameCount, c.mDumpEnable,
                 c.mDumpMvEnable},
                ports, log),
      delivery(c.mOBDBuffers, c.mVppOBDQueue, c.mCurrentOBD, c.mVppOBDQueueLock),
      worker(
          {c.mOBDThread, c.mOBDThreadRunning, c.mOBDLoop, c.mOBDCmd, c.mOBDCmdLock, c.mOBDCmdCond,
           c.mOBDStateLock, c.mOBDStateCond, c.mOBDThreadReady, c.mStartDone, c.mStartPending},
          {[&c] { c.VppOBDworkerThread(); }, [&c] { c.queueOBD(); },
           [this] { return startPosted(); }, [&c] { return c.weak_from_this().lock(); }},
          delivery, client, waitLimit, log),
      queue({c.mNeedAdditionalBuffer, c.mMapper, yuvPool, sidePool, outstanding, settings, ports,
             service, c.mStatus, c.mLock, client, log}),
      returns(
          {yuvPool, sidePool, outstanding, delivery, worker, c.mLastOutputTimestamp, client, log}),
      flush({events, service, outstanding, sidePool, yuvPool, converter, heldSlots, delivery,
             worker, outputGate, c.mStatus, c.mLock, log}),
      inBand({settings, control, ports, reconfiguration, flush, converter, heldSlots, outputGate,
              client, log}),
      intake({c.mNeedAdditionalBuffer, c.mExtraBuffers},
             {yuvPool, sidePool, outstanding, heldSlots, converter, queue, flush, inBand,
              outputGate, worker, settings, ports, start, reconfiguration, c.mStatus, c.mLock,
              client, waitLimit, log}),
      session(c, *this) {}

// Carries out the start that config() posted; runs on the worker. The gate keeps output buffers out
// while the session changes. The start fails if an output buffer is still being queued when the
// wait ends.
bool VppComponent::Parts::startPosted() {
    WaitBudget waits = waitLimit.budget();
    const Gate::Closure closure(outputGate, &waits);
    if (!closure) {
        const SessionLog& mLog = log;
        VPP_LOGE("processStart_l: an output buffer is still being queued");
        start.announceSessionPorts();
        return false;
    }
    return start.start(ports.sourceWidth(), ports.sourceHeight(), ports.sourceFormat());
}

}  // namespace android
