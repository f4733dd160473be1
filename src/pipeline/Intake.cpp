#include <Rgb2Yuv.h>
#include <qoz/VppComponent.h>
#include <utils/Timers.h>

#include <new>
#include <utility>

#include "pipeline/Align.h"
#include "pipeline/BufferPool.h"
#include "pipeline/SourceFrame.h"
#include "session/Log.h"
#include "stream/VppUtils.h"

namespace android {
namespace {

constexpr const char* kOperation = "processBuffer";
constexpr int32_t kNoSlot = -1;  // a dummy source; a place in the held slots without a slot

}  // namespace

int32_t VppComponent::processBuffer(std::vector<QOZBufferInfo>* src, QOZBufferInfo* dst) {
    if (src == nullptr && dst == nullptr) return 1;
    if (src != nullptr && dst != nullptr) {
        VPP_LOGE_BARE("%s:pSrcBufferInfo = %p, pDstBufferInfo = %p ", kOperation,
                      static_cast<void*>(src), static_cast<void*>(dst));
        return 1;
    }
    if (!awaitPendingStart(kOperation)) return 1;
    try {
        return src != nullptr ? processSource(*src) : processOutput(*dst);
    } catch (const std::bad_alloc&) {
        // Thrown before anything was queued or held: the packet is still the client's.
        VPP_LOGE("%s: out of memory", kOperation);
        return 1;
    }
}

int32_t VppComponent::processOutput(const QOZBufferInfo& output) {
    const sp<GraphicBuffer>& buffer = output.buffer;
    if (buffer == nullptr || !isEnabled(kOperation)) return 1;
    const auto format = static_cast<uint32_t>(buffer->getPixelFormat());
    if (mInputFormat == 0) mInputFormat = format;
    if (mStatus == INIT) {
        if (!processStart_l(buffer->getWidth(), buffer->getHeight(), format)) {
            VPP_LOGE("VPP processStart_l failure, cancel the output buffer buffer");
            giveBack(0, output.slot, 0, 0);
            return 1;
        }
        VPP_LOGD("VPP processStart_l success");
    }
    VPP_LOGD("No input buffer ,just queue output to VPP");
    SideBuffers none;
    queueBuffer(buffer, none, static_cast<uint32_t>(output.slot),
                static_cast<uint64_t>(systemTime(SYSTEM_TIME_MONOTONIC)), false);
    return 0;
}

int32_t VppComponent::processSource(const std::vector<QOZBufferInfo>& packet) {
    if (packet.empty() || packet[0].buffer == nullptr || mInputFormat == 0) {
        VPP_LOGE("%s: INVALID INPUT !", kOperation);
        return 1;
    }
    if (!isEnabled(kOperation)) return 1;
    SourceFrame frame(packet[0]);
    mNeedAdditionalBuffer = false;
    const bool dummy = packet.size() == 1 && frame.slot == kNoSlot;
    const bool converted = static_cast<uint32_t>(frame.source->getPixelFormat()) == kNv12Vemo;
    if (!dummy && converted && !mNeedDownscaleResult && !mMvEnabled && !mDsEnabled) {
        // Nothing is converted into what else the packet holds.
        for (size_t i = 1; i < packet.size(); ++i)
            giveBack(0, packet[i].slot, 0, 0);
        return queueUnconverted(frame);
    }
    if (packet.size() > 2) {
        VPP_LOGE("Send more than 2 buffers in one packet is NOT supported !");
        return 1;
    }
    if (dummy) return acceptDummy(frame);
    if (packet.size() == 2) {
        if (packet[1].buffer == nullptr) {
            VPP_LOGE("%s: INVALID INPUT !", kOperation);
            return 1;
        }
        frame.target = packet[1].buffer;
        frame.queuedSlot = packet[1].slot;
    } else {
        VPP_LOGI("%s : request additional buffer, size=%ux%u", kOperation, mInPortWidth,
                 mInPortHeight);
        mNeedAdditionalBuffer = true;
    }
    return convertAndQueue(frame);
}

// The service gives the client's buffer back itself.
int32_t VppComponent::queueUnconverted(const SourceFrame& frame) {
    VPP_LOGW("Nothing needs to be done in ME, directly queue buffer to VPP");
    mExtraBuffers = {};
    queueBuffer(frame.source, mExtraBuffers, static_cast<uint32_t>(frame.queuedSlot),
                frame.timestampUs(), true);
    return 0;
}

// Only the first one has anything to do: it sets the converter up before frames come.
int32_t VppComponent::acceptDummy(SourceFrame& frame) {
    VPP_LOGI("%s : receive dummy buffer to start ME initialization, src buf size=%ux%u", kOperation,
             frame.width, frame.height);
    if (mRgb2Yuv != nullptr) return 0;
    configureConverter(frame);
    VPP_LOG_GATED(ANDROID_LOG_DEBUG,
                  "%s : ME is configured successfully, return directly since this is dummy buffer",
                  kOperation);
    return 0;
}

int32_t VppComponent::convertAndQueue(SourceFrame& frame) {
    adoptSourceSize(frame);
    setUpMotionEngine(frame);
    VPP_LOGD("%s input frame timestamp = %ld ns", kOperation, frame.timestampNs);
    if (!requestBuffers(frame)) return 1;
    const bool ok = convert(frame);
    mExtraBuffers = {std::move(frame.forward), std::move(frame.backward),
                     std::move(frame.downscaled)};
    if (!ok) {
        VPP_LOGE("RGBToNV12 or MvBufferGeneration error");
        return 1;
    }
    VPP_LOGD("no outputbuffer ready, queue the YUV input buffer alone");
    holdSlot(frame.slot);
    queueBuffer(frame.target, mExtraBuffers, static_cast<uint32_t>(frame.queuedSlot),
                frame.timestampUs(), true);
    mPrevSourceBuffer = frame.source;
    releaseFrontSlot();
    mIsFirstFrame = false;
    if (frame.config) applyInBandConfig(frame, *frame.config);
    return 0;  // the frame is on its way, whatever became of the settings
}

// A frame of a new size reshapes the session, unless the input port runs at that size already.
void VppComponent::adoptSourceSize(SourceFrame& frame) {
    frame.sizeChanged = frame.width != mWidth || frame.height != mHeight;
    if (!frame.sizeChanged) return;
    const uint32_t format = VppUtils::GetYUVFormat(mInputFormat);
    if (isInputPortEnabled(frame.width, frame.height, format)) return;
    VPP_LOG_GATED(ANDROID_LOG_DEBUG,
                  "%s : source buffer size changes, call vpp processReconfig_l\n", kOperation);
    processFlush_l(true);
    processReconfig_l(frame.width, frame.height, format);
    if (mMvEnabled) holdSlot(kNoSlot);
}

// The converter is set up when there is none (first frame, or the first after an enable) and again
// for a later frame of a new size. A frame is fresh when nothing before it can serve as its
// reference.
void VppComponent::setUpMotionEngine(SourceFrame& frame) {
    const bool missing = mRgb2Yuv == nullptr;
    frame.fresh = mIsFirstFrame || frame.sizeChanged || missing || !hasReference(frame);
    if (!missing && (mIsFirstFrame || !frame.sizeChanged)) return;
    VPP_LOGD("%s: %s MotionEngine, isFirstFrame=%d, isBufferSizeChanged=%d", kOperation,
             missing ? "Setup" : "Reconfigure", mIsFirstFrame ? 1 : 0, frame.sizeChanged ? 1 : 0);
    configureConverter(frame);
}

// After a frame of a new size that failed, the previous source is still one of the old size. Nor
// can a source of another format be the reference.
bool VppComponent::hasReference(const SourceFrame& frame) const {
    return mPrevSourceBuffer != nullptr && mPrevSourceBuffer->getWidth() == frame.width &&
           mPrevSourceBuffer->getHeight() == frame.height &&
           mPrevSourceBuffer->getPixelFormat() == frame.source->getPixelFormat();
}

void VppComponent::configureConverter(SourceFrame& frame) {
    if (mRgb2Yuv == nullptr) mRgb2Yuv = new Rgb2Yuv();
    mRgb2Yuv->Configure(frame.source, mExpectedOutWidth, mExpectedOutHeight);
}

// The conversion target, unless the client brought its own, and the side buffers.
bool VppComponent::requestBuffers(SourceFrame& frame) {
    if (mNeedAdditionalBuffer) {
        const RequestInfo target{true, mInPortWidth, mInPortHeight, kNv12Vemo,
                                 pool::kInternalUsage};
        if (!requestYuvBuffer(&frame.target, target)) {
            VPP_LOGE("%s Failed to allocate temp YUV buffer", kOperation);
            return false;
        }
    }
    if (!mMvEnabled && !mDsEnabled) return true;
    RequestInfo vectors;
    uint32_t width = 0;
    uint32_t height = 0;
    if (mMvEnabled && !frame.fresh && mRgb2Yuv->GetMVbufferSize(width, height)) {
        vectors = {true, width, height, kRgba8888, pool::kInternalUsage};
    }
    RequestInfo downscaled;
    if (mDsEnabled) {
        downscaled = {true, align(mExpectedOutWidth >> 1, 2), align(mExpectedOutHeight >> 1, 2),
                      kNv12Vemo, pool::kInternalUsage};
    }
    if (requestExtradataBuffer(&frame.forward, &frame.backward, vectors, &frame.downscaled,
                               downscaled)) {
        return true;
    }
    VPP_LOGE("%s Failed to allocate extradata buffers", kOperation);
    return false;
}

bool VppComponent::convert(SourceFrame& frame) {
    const bool motion = mMvEnabled && !frame.fresh;
    bool ok =
        mRgb2Yuv->RGBToNV12(frame.source, frame.target, frame.downscaled, motion, frame.fence);
    if (frame.forward != nullptr && frame.backward != nullptr) {
        ok = ok && mRgb2Yuv->MvBufferGeneration(mPrevSourceBuffer, frame.source, frame.forward,
                                                frame.backward);
    }
    if (mDumpEnable) dumpFrame(frame);
    return ok;
}

// Whether or not the conversion succeeded: what went wrong is what one wants to see.
void VppComponent::dumpFrame(SourceFrame& frame) {
    const auto dump = [this](sp<GraphicBuffer>& buffer, const char* name, const char* label) {
        if (buffer != nullptr) mRgb2Yuv->DumpBuffer(buffer, name, mDumpFrameCount, label);
    };
    if (mDumpMvEnable && frame.forward != nullptr && frame.backward != nullptr) {
        dump(frame.forward, "FW_MV", "RGBA8888");
        dump(frame.backward, "BW_MV", "RGBA8888");
    }
    dump(frame.source, "Game_Source", "VEMO_RGBA8888");
    dump(frame.target, "QOZ_Converted", "VEMO_NV12");
    dump(frame.downscaled, "Downscaled", "VEMO_NV12");
    ++mDumpFrameCount;
}

void VppComponent::holdSlot(int32_t slot) {
    if (mSpareSlots.empty()) {
        mSlotList.push_back(slot);
    } else {
        mSpareSlots.front() = slot;
        mSlotList.splice(mSlotList.end(), mSpareSlots, mSpareSlots.begin());
    }
    mPublishedHeld.store(mSlotList.size(), std::memory_order_relaxed);
}

// With a placeholder in the list every source is released one frame late: until then it is the
// motion engine's reference.
void VppComponent::releaseFrontSlot() {
    const int32_t slot = mSlotList.front();
    mSpareSlots.splice(mSpareSlots.end(), mSlotList, mSlotList.begin());
    mPublishedHeld.store(mSlotList.size(), std::memory_order_relaxed);
    if (slot == kNoSlot) return;
    VPP_LOGD("Input buffer slot=%d could be release after RGBToNV12", slot);
    giveBack(1, slot, 1, 0);
}

void VppComponent::releaseHeldSlots() {
    mPublishedHeld.store(0, std::memory_order_relaxed);
    for (const int32_t slot : std::exchange(mSlotList, {})) {
        if (slot == kNoSlot) continue;
        VPP_LOGD("Valid buffer slot=%d could be released", slot);
        giveBack(1, slot, 1, 0);
    }
}

}  // namespace android
