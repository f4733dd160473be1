// SPDX-License-Identifier: Apache-2.0
#include "pipeline/ServiceQueue.h"

#include <chrono>
#include <new>
#include <thread>
#include <utility>

#include "base/TraceMarker.h"
#include "pipeline/Cookie.h"
#include "vpp/RecordFields.h"

namespace android {
namespace {

using vpp::VppError;
using vpp::VppPort;
using Shared = QueueRecord::Shared;

constexpr const char* kForwardName = "vpp.metabuf.mv.fw";
constexpr const char* kBackwardName = "vpp.metabuf.mv.bw";
constexpr const char* kDownscaledName = "vpp.metabuf.scale.0p5";

// The time that a callback waits while another thread calls the service. It is longer than such a
// call takes, unless the service waits for the callback.
constexpr auto kCallPatience = std::chrono::milliseconds(20);
constexpr auto kLookAgain = std::chrono::microseconds(100);

// The queue whose call into the service is in progress on this thread.
thread_local const void* tCalling = nullptr;

}  // namespace

bool ServiceQueue::queue(const sp<GraphicBuffer>& buffer, SideBuffers& extradata, uint32_t cookie,
                         uint64_t timestamp, bool isInput) {
    return queueItem({buffer, cookie, timestamp, isInput, false}, extradata) == Outcome::Queued;
}

bool ServiceQueue::queueFromCallback(const sp<GraphicBuffer>& buffer, uint32_t slot,
                                     uint64_t timestamp) {
    SideBuffers none;
    return queueItem({buffer, slot, timestamp, false, true}, none) != Outcome::Busy;
}

// If the buffer was not queued, returns it to the client. A target of the component's own pool is
// not the client's; queueSource() has freed it already.
ServiceQueue::Outcome ServiceQueue::queueItem(const Item& item, SideBuffers& extradata) {
    const bool isPooled = item.isInput && p.needAdditionalBuffer;
    Outcome outcome = Outcome::NotQueued;
    if (!pool::hasMemory(item.buffer)) {
        VPP_LOGE("invalid graphic buffer");
    } else if (isQueueableId(item.cookie, item.isInput)) {
        outcome = item.isInput ? queueSource(item, extradata) : queueOutput(item);
    }
    const bool isRefused = outcome == Outcome::NotQueued || outcome == Outcome::WrongSize;
    if (!isRefused || isPooled) return outcome;
    const auto slot = static_cast<int32_t>(item.cookie);
    item.isInput ? p.client.giveBackTarget(slot) : p.client.giveBackUnused(slot);
    return outcome;
}

bool ServiceQueue::send(uint32_t cookie, const sp<GraphicBuffer>& buffer, uint64_t timestamp,
                        bool isInput) {
    const Outcome outcome = handOver({buffer, cookie, timestamp, isInput, false});
    if (outcome == Outcome::WrongSize) p.client.giveBackUnused(static_cast<int32_t>(cookie));
    return outcome == Outcome::Queued;
}

// Polls when called for a callback, because std::mutex has no wait with a time limit.
bool ServiceQueue::take(std::unique_lock<std::mutex>& lock, const Item& item) const {
    if (!item.isFromCallback) {
        lock.lock();
        return true;
    }
    const auto end = std::chrono::steady_clock::now() + kCallPatience;
    while (!lock.try_lock()) {
        if (std::chrono::steady_clock::now() >= end) return false;
        std::this_thread::sleep_for(kLookAgain);
    }
    return true;
}

// The first output buffer after a flush makes the session ACTIVE again. The service's session is
// still open and continues with later buffers.
ServiceQueue::Outcome ServiceQueue::queueOutput(const Item& item) {
    if (p.status == Status::IDLE) {
        std::unique_lock<std::mutex> lock(p.lock, std::defer_lock);
        if (!take(lock, item)) return Outcome::Busy;
        if (p.status == Status::IDLE) p.status = Status::ACTIVE;
    }
    return handOver(item);
}

// A frame that was not queued is never returned by the service, so its pool entries are freed here,
// unless an outstanding frame of the same timestamp uses them. Otherwise each refusal would cost a
// buffer.
ServiceQueue::Outcome ServiceQueue::queueSource(const Item& item, SideBuffers& extradata) {
    p.outstanding.announce(item.timestamp);
    recordExtradata(extradata, item.timestamp);
    if (p.needAdditionalBuffer) p.yuvPool.record(item.timestamp, item.buffer);
    const Outcome outcome = handOver(item);
    if (outcome == Outcome::Queued) return outcome;
    p.outstanding.withdrawAnnounced();
    const uint64_t key = item.timestamp;
    if (!p.outstanding.areSidesUsed(key)) p.sidePool.free(key, "queueBuffer");
    if (!p.outstanding.isTargetUsed(key)) p.yuvPool.free(key, "queueBuffer");
    return outcome;
}

// Output buffers are returned through the delivery table, which has one record for each slot. A
// client's input buffer is returned by its id, which must not contain the flag bits.
bool ServiceQueue::isQueueableId(uint32_t id, bool isInput) const {
    const bool fits = isInput ? p.needAdditionalBuffer || cookie::idOf(id) == id
                              : id < QOZBufferInfo::kOutputSlots;
    if (fits) return true;
    VPP_LOGE("%s buffer refused: slot %d is out of range", isInput ? "input" : "output",
             static_cast<int32_t>(id));
    return false;
}

void ServiceQueue::recordExtradata(SideBuffers& extradata, uint64_t timestamp) {
    if (pool::holdsBuffer(extradata)) {
        p.sidePool.record(timestamp, std::exchange(extradata, {}));
    } else {
        VPP_LOGI("skip to emplace empty mv buffers and downscale buffers");
    }
}

// Must be checked for each buffer, under the component's lock: a client that has not yet learnt of
// a new size queues buffers of the old size for a while.
bool ServiceQueue::fitsOutput(const sp<GraphicBuffer>& buffer) const {
    if (p.ports.isOutputSize(buffer->getWidth(), buffer->getHeight())) return true;
    VPP_LOGW("Queued output buffer size=%ux%u doesn't match expected buffer size=%ux%u",
             buffer->getWidth(), buffer->getHeight(), p.ports.outputWidth(),
             p.ports.outputHeight());
    return false;
}

// Holds the component's lock from the first check of the session to the end of the call. The record
// is destroyed at the end of this function; the service has its own duplicates of the descriptors
// by then.
ServiceQueue::Outcome ServiceQueue::handOver(const Item& item) {
    ATRACE_NAME("queueVppBuffer");
    std::unique_lock<std::mutex> lock(p.lock, std::defer_lock);
    if (!take(lock, item)) return Outcome::Busy;
    if (!p.service.hasSession()) {
        VPP_LOGE("queueVppBuffer: component is not enabled");
        return Outcome::NotQueued;
    }
    if (!item.isInput && !fitsOutput(item.buffer)) return Outcome::WrongSize;
    try {
        QueueRecord record(p.mapper);
        if (item.isInput && !attachMetaBuffers(record, item.timestamp)) return Outcome::NotQueued;
        if (!attachPixels(record, item)) return Outcome::NotQueued;
        return call(record.vppBuffer(), item.isInput);
    } catch (const std::bad_alloc&) {
        VPP_LOGE("queueVppBuffer: out of memory");
        return Outcome::NotQueued;
    }
}

// Returns false if the process has no free descriptors. If a native handle cannot be created, no
// further side buffers are attached. A side buffer without memory is left out.
bool ServiceQueue::attachMetaBuffers(QueueRecord& record, uint64_t timestamp) const {
    if (!p.settings.motionVectors() && !p.settings.downscaledCopies()) return true;
    const SideBuffers side = p.sidePool.find(timestamp);
    VPP_LOGI("Passing FW, BW and downscale buffer to vpp metabufs");
    const auto& [forward, backward, downscaled] = side;
    record.vppBuffer().metaBuffers.reserve(QueueRecord::kMaxMetaBuffers);
    Shared shared = Shared::Ok;
    if (forward != nullptr && backward != nullptr) {
        shared = attachVectors(record, forward, backward);
    }
    if (downscaled != nullptr && shared == Shared::Ok) {
        shared = attachDownscaled(record, downscaled);
    }
    return shared != Shared::NoDescriptor;
}

// Attaches the forward vectors first, then the backward vectors. The service finds them by name;
// the fixed order is for people who read records.
Shared ServiceQueue::attachVectors(QueueRecord& record, const sp<GraphicBuffer>& forward,
                                   const sp<GraphicBuffer>& backward) const {
    if (!pool::hasMemory(forward) || !pool::hasMemory(backward)) {
        VPP_LOGE("a motion-vector buffer has no memory, none is attached");
        return Shared::Ok;
    }
    auto& metas = record.vppBuffer().metaBuffers;
    metas.resize(2);
    Shared shared = record.shareMeta(0, kForwardName, forward);
    if (shared == Shared::NoHandle) VPP_LOGE_BARE("nhMeta1 native_handle_create failed");
    if (shared != Shared::Ok) return shared;
    shared = record.shareMeta(1, kBackwardName, backward);
    if (shared == Shared::NoHandle) VPP_LOGE_BARE("nhMeta2 native_handle_create failed");
    if (shared != Shared::Ok) return shared;
    VPP_LOGI("FW buffer fd=%d, allocsize=%d BW buffer fd=%d, allocsize=%d",
             metas[0].metaHandle.fds[0].get(), static_cast<int>(metas[0].metaAllocLen),
             metas[1].metaHandle.fds[0].get(), static_cast<int>(metas[1].metaAllocLen));
    return shared;
}

Shared ServiceQueue::attachDownscaled(QueueRecord& record,
                                      const sp<GraphicBuffer>& downscaled) const {
    if (!pool::hasMemory(downscaled)) {
        VPP_LOGE("the downscaled buffer has no memory, it is not attached");
        return Shared::Ok;
    }
    auto& metas = record.vppBuffer().metaBuffers;
    const auto& meta = metas.emplace_back();
    const Shared shared = record.shareMeta(metas.size() - 1, kDownscaledName, downscaled);
    if (shared == Shared::NoHandle) VPP_LOGE_BARE("nhMeta3 native_handle_create failed");
    if (shared != Shared::Ok) return shared;
    VPP_LOGI("Metabuf size=%u, Downscale bufer fd=%d, allocsize=%d",
             static_cast<uint32_t>(metas.size()), meta.metaHandle.fds[0].get(),
             static_cast<int>(meta.metaAllocLen));
    return shared;
}

// Attaches the pixels of the buffer. A source is filled to its allocation size; an output buffer is
// empty.
bool ServiceQueue::attachPixels(QueueRecord& record, const Item& item) const {
    auto& out = record.vppBuffer();
    uint32_t allocLen = 0;
    const Shared shared = record.share(item.buffer, &out.pixelHandle, &allocLen);
    if (shared == Shared::NoHandle) VPP_LOGE_BARE("native_handle_create failed");
    if (shared != Shared::Ok) return false;
    const int fd = item.buffer->getNativeBuffer()->handle->data[0];
    const int size = static_cast<int>(allocLen);
    VPP_LOGI("queueBuffer(%s): cookie: %u, fd:%d, size:%d ts:%lu ",
             item.isInput ? "input" : "output", item.cookie, fd, size,
             static_cast<unsigned long>(item.timestamp));
    VPP_LOGI("Pixel buffer fd=%d, allocsize=%d", fd, size);
    setUnsigned(out.pixelAllocLen, allocLen);
    setUnsigned(out.pixelFilledLen, item.isInput ? allocLen : 0);
    setUnsigned(out.pixelSize, allocLen);
    setUnsigned(out.timestamp, item.timestamp);
    out.cookie = item.isInput ? cookie::forInput(item.cookie, p.needAdditionalBuffer)
                              : cookie::forOutput(item.cookie);
    return true;
}

// Records the buffer before the call, because it may be returned before the call ends. If the
// service dies meanwhile, every recorded buffer is returned to the client.
ServiceQueue::Outcome ServiceQueue::call(const QueueRecord::VppBuffer& record, bool isInput) {
    const uint32_t id = cookie::idOf(record.cookie);
    const OutstandingBuffers::Input input{id, cookie::isInternal(record.cookie),
                                          unsignedOf(record.timestamp)};
    if (!(isInput ? p.outstanding.addInput(input) : p.outstanding.addOutput(id))) {
        VPP_LOGD("queueVppBuffer: the vpp service has died");
        return Outcome::NotQueued;
    }
    Outcome outcome = Outcome::Queued;
    const void* const around = std::exchange(tCalling, this);
    const VppError error = p.service.queueBuf(isInput ? VppPort::INPUT : VppPort::OUTPUT, record);
    tCalling = around;
    if (error != VppError::VPP_OK) {
        VPP_LOGE("failed to queue vpp buffer");
        const bool withdrawn =
            isInput ? p.outstanding.withdrawInput(input) : p.outstanding.withdrawOutput(id);
        outcome = withdrawn ? Outcome::NotQueued : Outcome::GivenBack;
    }
    traceOutstanding();
    return outcome;
}

bool ServiceQueue::isOnThisThread() const {
    return tCalling == this;
}

// Formats the message only while tracing is on, because this runs for every buffer.
void ServiceQueue::traceOutstanding() const {
    if (ATRACE_ENABLED() == 0) return;
    const auto [inputs, outputs] = p.outstanding.counts();
    VPP_TRACE_MARKER(128, "VPP input port buffer: %d , VPP output port buffer: %d",
                     static_cast<int>(inputs), static_cast<int>(outputs));
}

}  // namespace android
