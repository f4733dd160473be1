// SPDX-License-Identifier: Apache-2.0
#include "pipeline/FrameIntake.h"

#include <utils/Timers.h>

#include <algorithm>
#include <chrono>
#include <climits>
#include <new>
#include <optional>
#include <utility>

#include "pipeline/Align.h"
#include "stream/VppUtils.h"

namespace android {
namespace {

constexpr int32_t kTaken = QOZResult::kTaken;
constexpr int32_t kRefused = QOZResult::kRefused;

// Returns whether the fence signals within the time left for the operation.
bool waitForFence(const SourceFrame& frame) {
    const auto begin = std::chrono::steady_clock::now();
    const auto left = std::chrono::ceil<std::chrono::milliseconds>(frame.waits.left()).count();
    const bool signalled =
        frame.fence->wait(static_cast<int>(std::min<int64_t>(left, INT_MAX))) == NO_ERROR;
    frame.waits.spendSince(begin);
    return signalled;
}

}  // namespace

// Exactly one of the two must be given. A source waits here for a start that config() has posted,
// because that start decides the size a source is converted to. An output buffer waits for it in
// takeOutput(), unless it comes from within a callback.
int32_t FrameIntake::process(const std::vector<QOZBufferInfo>* source,
                             const QOZBufferInfo* output) {
    if (source == nullptr && output == nullptr) return kRefused;
    if (source != nullptr && output != nullptr) {
        VPP_LOGE_BARE("processBuffer:pSrcBufferInfo = %p, pDstBufferInfo = %p ",
                      static_cast<const void*>(source), static_cast<const void*>(output));
        return kRefused;
    }
    try {
        if (output != nullptr) return takeOutput(*output);
        WaitBudget waits = p.limit.budget();
        if (!p.worker.waitForPendingStart(waits, "processBuffer")) return kRefused;
        return takeSource(*source, waits);
    } catch (const std::bad_alloc&) {
        // Thrown before any buffer was queued or held, so the packet stays with the client.
        VPP_LOGE("processBuffer: out of memory");
        return kRefused;
    }
}

// The worker begins shortly before enable() ends and ends shortly before disable() does, so the
// state is examined as well.
bool FrameIntake::isEnabled() const {
    if (p.worker.isRunning() && p.status != Status::UNINIT) return true;
    VPP_LOGE("processBuffer: component is not enabled");
    return false;
}

// Reads the state under the component's lock, because a start sets ACTIVE under it.
bool FrameIntake::isInputPortEnabled(uint32_t width, uint32_t height, uint32_t format) {
    const std::lock_guard<std::mutex> lock(p.lock);
    return p.status == Status::ACTIVE && p.ports.isSource(width, height, format);
}

// Within a callback it does not wait for a flush, a start or disable(), which may be waiting for
// that callback. If it has to start the session, it waits for buffers that are being queued.
int32_t FrameIntake::takeOutput(const QOZBufferInfo& output) {
    if (output.buffer == nullptr || !isEnabled()) return kRefused;
    WaitBudget budget = p.limit.budget();
    const bool inCallback = p.client.isOnThisThread();
    WaitBudget* const waits = inCallback ? nullptr : &budget;
    // A dead service's buffers are returned at once, so a client that requeues every buffer from
    // its callback would never leave that callback.
    if (inCallback && p.outstanding.isServiceGone()) {
        VPP_LOGW("processBuffer: the vpp service has died, output buffer refused");
        return kRefused;
    }
    if (p.queue.isOnThisThread()) {
        VPP_LOGW("processBuffer: another buffer is being queued on this thread, output refused");
        return kRefused;
    }
    Step step = Step::Retry;
    while (step == Step::Retry) {
        if (!inCallback && !p.worker.waitForPendingStart(budget, "processBuffer")) return kRefused;
        if (p.ports.inputFormat() == 0) {
            p.ports.setInputFormat(static_cast<uint32_t>(output.buffer->getPixelFormat()));
        }
        step = p.status == Status::INIT ? startFor(output, waits) : Step::Done;
        if (step == Step::Done) step = queueOutput(output, waits);
    }
    return step == Step::Done ? kTaken : kRefused;
}

// The next attempt begins by waiting for the start, which a callback does not do. Without a worker
// there is nothing to wait for.
FrameIntake::Step FrameIntake::retry(const WaitBudget* waits) const {
    if (waits == nullptr) return refuseForNow();
    return isEnabled() ? Step::Retry : Step::Refused;
}

FrameIntake::Step FrameIntake::refuseForNow() const {
    VPP_LOGW("processBuffer: a flush or a start is under way, output buffer refused");
    return Step::Refused;
}

// The first output buffer starts a session that config() has not started. The gate keeps all other
// output buffers out meanwhile. The state is checked again behind the gate, because another
// thread's buffer may have started the session first. If the start fails, the buffer is both
// returned through the callback and refused.
FrameIntake::Step FrameIntake::startFor(const QOZBufferInfo& output, WaitBudget* waits) {
    bool started = true;
    {
        const Gate::Passage turn(mStartGate, waits);
        if (!turn) return refuseForNow();
        const Gate::Closure closure(p.outputGate, waits);
        if (!closure) return refuseForNow();
        if (p.worker.isStartPending()) return retry(waits);
        if (!isEnabled()) return Step::Refused;  // disable() has ended the worker meanwhile
        if (p.status == Status::INIT) {
            started = p.start.start(output.buffer->getWidth(), output.buffer->getHeight(),
                                    static_cast<uint32_t>(output.buffer->getPixelFormat()));
        }
    }
    if (!started) {
        VPP_LOGE("VPP processStart_l failure, cancel the output buffer buffer");
        p.client.giveBackUnused(output.slot);
        return Step::Refused;
    }
    VPP_LOGD("VPP processStart_l success");
    return Step::Done;
}

// Unless the result is Done, the buffer stays with the client. Otherwise the buffer will be
// returned through the callback: at once if the service refuses it. An output buffer's timestamp is
// the time of its queueing, in nanoseconds. The session is examined again behind the gate, because
// another thread may have ended it meanwhile, and may even have begun the next one.
FrameIntake::Step FrameIntake::queueOutput(const QOZBufferInfo& output, WaitBudget* waits) {
    const Gate::Passage passage(p.outputGate, waits);
    if (!passage) return refuseForNow();
    if (p.worker.isStartPending() || p.status == Status::INIT) return retry(waits);
    if (!isEnabled()) return Step::Refused;
    VPP_LOGD("No input buffer ,just queue output to VPP");
    const auto slot = static_cast<uint32_t>(output.slot);
    const auto now = static_cast<uint64_t>(systemTime(SYSTEM_TIME_MONOTONIC));
    if (waits != nullptr) {
        SideBuffers none;
        p.queue.queue(output.buffer, none, slot, now, false);
        return Step::Done;
    }
    if (p.queue.queueFromCallback(output.buffer, slot, now)) return Step::Done;
    VPP_LOGW("processBuffer: vpp has not answered another thread, output buffer refused");
    return Step::Refused;
}

// Decides how the packet is handled. A dummy is a single entry without a slot; it is never queued,
// not even if it needs no conversion. An NV12 frame needs no conversion if it fits the input port
// and no side buffers are wanted. Every other frame is converted, into the packet's second entry or
// into a buffer of the component's pool.
int32_t FrameIntake::takeSource(const std::vector<QOZBufferInfo>& packet, WaitBudget& waits) {
    if (packet.empty() || !pool::hasMemory(packet[0].buffer) || p.ports.inputFormat() == 0) {
        VPP_LOGE("processBuffer: INVALID INPUT !");
        return kRefused;
    }
    if (!isEnabled()) return kRefused;
    if (p.outstanding.isFull()) {
        VPP_LOGE("processBuffer: vpp holds %u source frames and returns none, frame refused",
                 OutstandingBuffers::kMaxSources);
        return kRefused;
    }
    std::optional<Gate::Closure> turn;  // see mStartGate
    if (p.status == Status::INIT && !turn.emplace(mStartGate, &waits)) {
        VPP_LOGE("processBuffer: an output buffer is still starting the session, frame refused");
        return kRefused;
    }
    SourceFrame frame(packet[0], waits);
    m.needAdditionalBuffer = false;
    const bool isDummy = packet.size() == 1 && frame.slot == QOZBufferInfo::kNoSlot;
    const bool isConverted = frame.format() == QOZFormat::kNv12Vemo;
    if (!isDummy && isConverted && !p.ports.downscalesSource() && !p.settings.motionVectors() &&
        !p.settings.downscaledCopies()) {
        return queueUnconverted(frame, packet);
    }
    if (packet.size() > 2) {
        VPP_LOGE("Send more than 2 buffers in one packet is NOT supported !");
        return kRefused;
    }
    if (isDummy) return acceptDummy(frame);
    if (!chooseTarget(frame, packet)) return kRefused;
    return convertAndQueue(frame);
}

// The frame is returned when the service has read it. The service cannot wait for a fence, so this
// function does. The packet's other entries are not needed and are returned at once.
int32_t FrameIntake::queueUnconverted(SourceFrame& frame,
                                      const std::vector<QOZBufferInfo>& packet) {
    VPP_LOGW("Nothing needs to be done in ME, directly queue buffer to VPP");
    if (!waitForFence(frame)) {
        VPP_LOGE("processBuffer: the acquire fence of source slot %d has not signalled in time",
                 frame.slot);
        return kRefused;
    }
    // The slots are copied because the callbacks may change the client's packet.
    std::vector<int32_t> unused;
    for (size_t i = 1; i < packet.size(); ++i)
        unused.push_back(packet[i].slot);
    m.extraBuffers = {};
    for (const int32_t slot : unused)
        p.client.giveBackTarget(slot);
    p.queue.queue(frame.source, m.extraBuffers, static_cast<uint32_t>(frame.queuedSlot),
                  frame.timestampUs(), true);
    return kTaken;
}

// Only a dummy that comes before there is a converter has an effect: it sets the converter up
// before the first frame.
int32_t FrameIntake::acceptDummy(SourceFrame& frame) {
    VPP_LOGI("processBuffer : receive dummy buffer to start ME initialization, src buf size=%ux%u",
             frame.width, frame.height);
    if (p.converter.exists()) return kTaken;
    p.converter.configure(frame.source);
    VPP_LOGD_BARE(
        "processBuffer : ME is configured successfully, return directly since this is dummy "
        "buffer");
    return kTaken;
}

// A target that the client supplies is returned through onBufferDone() when the service has read
// it. The frame is then queued under the target's slot instead of the source's.
bool FrameIntake::chooseTarget(SourceFrame& frame, const std::vector<QOZBufferInfo>& packet) {
    if (packet.size() == 1) {
        VPP_LOGI("processBuffer : request additional buffer, size=%ux%u", p.ports.inputWidth(),
                 p.ports.inputHeight());
        m.needAdditionalBuffer = true;
        return true;
    }
    if (!pool::hasMemory(packet[1].buffer)) {
        VPP_LOGE("processBuffer: INVALID INPUT !");
        return false;
    }
    frame.target = packet[1].buffer;
    frame.queuedSlot = packet[1].slot;
    return true;
}

// The steps for a frame that needs conversion:
//
//     adoptSourceSize   a new size flushes and reconfigures the session
//     setUp             creates or configures the converter if it does not fit the frame
//     requestBuffers    takes a target and side buffers from the pools
//     convert           pixels, half-size copy, motion vectors between the previous source and this
//     hold, queue       holds the source's slot and queues the converted frame to the service
//     adoptReference    makes this source the reference of the next one, in place of the previous
//     releaseFront      returns the slot at the front, usually the previous source, to the client
//     apply             applies settings that came with the frame, for the next frame on
//
// A failure before `hold` refuses the packet, and all its buffers stay with the client. From `hold`
// on the packet is taken whatever the service answers: the source has been read and will be
// returned.
int32_t FrameIntake::convertAndQueue(SourceFrame& frame) {
    if (!adoptSourceSize(frame)) return kRefused;
    p.converter.setUp(frame);
    VPP_LOGD("processBuffer input frame timestamp = %ld ns", static_cast<long>(frame.timestampNs));
    if (!requestBuffers(frame)) return kRefused;
    const bool converted = convert(frame);
    m.extraBuffers = {std::move(frame.forward), std::move(frame.backward),
                      std::move(frame.downscaled)};
    if (!converted) {
        VPP_LOGE("RGBToNV12 or MvBufferGeneration error");
        return kRefused;
    }
    VPP_LOGD("no outputbuffer ready, queue the YUV input buffer alone");
    p.heldSlots.hold(frame.slot);
    p.queue.queue(frame.target, m.extraBuffers, static_cast<uint32_t>(frame.queuedSlot),
                  frame.timestampUs(), true);
    p.converter.adoptReference(frame);
    p.heldSlots.releaseFront();
    if (frame.config) p.inBand.apply(frame, *frame.config);
    return kTaken;  // the frame has been taken, whether or not the settings were applied
}

// A frame of a new size reconfigures the session, unless the input port runs at that size already.
// The results of the flush and the reconfiguration are not checked: both log their failures, and
// the frame is converted for the new sizes in any case. Returns false, with nothing changed, if an
// output buffer is still being queued when the wait ends.
bool FrameIntake::adoptSourceSize(SourceFrame& frame) {
    frame.sizeChanged = !p.ports.isSourceSize(frame.width, frame.height);
    if (!frame.sizeChanged) return true;
    const uint32_t format = VppUtils::GetYUVFormat(p.ports.inputFormat());
    if (isInputPortEnabled(frame.width, frame.height, format)) return true;
    const Gate::Closure closure(p.outputGate, &frame.waits);
    if (!closure) {
        VPP_LOGE("processBuffer: an output buffer is still being queued");
        return false;
    }
    VPP_LOGD_BARE("processBuffer : source buffer size changes, call vpp processReconfig_l\n");
    p.flush.flushPorts(true, frame.waits);
    p.reconfiguration.run(frame.width, frame.height, format, frame.waits);
    if (p.settings.motionVectors()) p.heldSlots.holdPlace();
    return true;
}

// Requests the conversion target, unless the client supplied one, and the side buffers.
bool FrameIntake::requestBuffers(SourceFrame& frame) {
    if (m.needAdditionalBuffer && !requestTarget(frame)) {
        VPP_LOGE("processBuffer Failed to allocate temp YUV buffer");
        return false;
    }
    if (!p.settings.motionVectors() && !p.settings.downscaledCopies()) return true;
    if (requestSideBuffers(frame)) return true;
    VPP_LOGE("processBuffer Failed to allocate extradata buffers");
    return false;
}

bool FrameIntake::requestTarget(SourceFrame& frame) {
    const RequestInfo info{true, p.ports.inputWidth(), p.ports.inputHeight(), QOZFormat::kNv12Vemo,
                           pool::kInternalUsage};
    return p.yuvPool.request(&frame.target, info);
}

bool FrameIntake::requestSideBuffers(SourceFrame& frame) {
    RequestInfo vectors;
    uint32_t width = 0;
    uint32_t height = 0;
    if (p.settings.motionVectors() && !frame.fresh && p.converter.vectorSize(width, height)) {
        vectors = {true, width, height, QOZFormat::kRgba8888, pool::kInternalUsage};
    }
    RequestInfo downscaled;
    if (p.settings.downscaledCopies()) {
        downscaled = {true, align(p.ports.outputWidth() >> 1, 2),
                      align(p.ports.outputHeight() >> 1, 2), QOZFormat::kNv12Vemo,
                      pool::kInternalUsage};
    }
    return p.sidePool.request({&frame.forward, &frame.backward, &frame.downscaled}, vectors,
                              downscaled);
}

// A side buffer without memory fails the frame, as a failed conversion does.
bool FrameIntake::convert(SourceFrame& frame) {
    for (const sp<GraphicBuffer>* side : {&frame.forward, &frame.backward, &frame.downscaled}) {
        if (*side == nullptr || pool::hasMemory(*side)) continue;
        VPP_LOGE("processBuffer: a side buffer of %ux%u has no memory", (*side)->getWidth(),
                 (*side)->getHeight());
        return false;
    }
    return p.converter.convert(frame, p.settings.motionVectors() && !frame.fresh);
}

}  // namespace android
