// SPDX-License-Identifier: Apache-2.0
// Queueing of buffers to the service. Private to src/.
#pragma once

#include <ui/GraphicBuffer.h>
#include <ui/GraphicBufferMapper.h>

#include <cstdint>
#include <mutex>

#include "base/ClientCallback.h"
#include "base/Log.h"
#include "base/SessionStatus.h"
#include "pipeline/OutstandingBuffers.h"
#include "pipeline/QueueRecord.h"
#include "pipeline/SideBufferPool.h"
#include "pipeline/YuvPool.h"
#include "stream/Ports.h"
#include "stream/StreamSettings.h"
#include "vpp/ServiceCalls.h"

namespace android {

// Builds a record for a graphic buffer and queues it. For a source frame it first stores the
// frame's internal buffers in the pools under the frame's timestamp, so that they can be reused
// when the service returns the frame.
//
// Sources come from the client's thread, output buffers from any thread that has passed the gate.
// The component's lock is held from building the record to the end of the call, so that buffers
// reach the service in the order in which they were queued.
class ServiceQueue {
  public:
    struct Peers {
        const bool& needAdditionalBuffer;  // the current frame's target belongs to the YUV pool
        GraphicBufferMapper& mapper;
        YuvPool& yuvPool;
        SideBufferPool& sidePool;
        OutstandingBuffers& outstanding;
        const StreamSettings& settings;
        const Ports& ports;
        ServiceCalls& service;
        SessionStatus& status;
        std::mutex& lock;  // of the component
        const ClientCallback& client;
        const SessionLog& log;
    };

    explicit ServiceQueue(const Peers& peers) : p(peers), mLog(peers.log) {}

    // Queues a buffer. `cookie` is the buffer's id; `timestamp` is in microseconds for a source.
    // Returns false if the buffer was not queued: a client's buffer has then been returned to it
    // without a frame, and a buffer of the component's pool is free for the next frame. The side
    // buffers of a source are moved out of `extradata`.
    bool queue(const sp<GraphicBuffer>& buffer, SideBuffers& extradata, uint32_t cookie,
               uint64_t timestamp, bool isInput);

    // Queues an output buffer from within a callback. The service may be waiting for that callback
    // before it answers a call that another thread makes under the component's lock; therefore the
    // wait for the lock is limited. Returns false if the lock was not free in time; the buffer
    // stays with the client.
    bool queueFromCallback(const sp<GraphicBuffer>& buffer, uint32_t slot, uint64_t timestamp);

    // The second half of queue(): builds the record and queues it. On failure it does not return
    // the buffer to the client, except an output buffer that does not fit the output port.
    bool send(uint32_t cookie, const sp<GraphicBuffer>& buffer, uint64_t timestamp, bool isInput);

    // Returns whether this thread is inside a call that queues a buffer. The service may return a
    // buffer from within that call, and a client that queued another one in its callback would wait
    // for itself.
    bool isOnThisThread() const;

    // Returns whether an output buffer has the size of the output port. Logs a diagnostic if not.
    bool fitsOutput(const sp<GraphicBuffer>& buffer) const;

  private:
    // One buffer that is being queued.
    struct Item {
        const sp<GraphicBuffer>& buffer;
        uint32_t cookie;
        uint64_t timestamp;
        bool isInput;
        bool isFromCallback;
    };
    // The result of queueing. WrongSize: an output buffer that does not fit the output port.
    // GivenBack: the service died during the call, and the client has its buffer back. Busy: the
    // component's lock was not free in time, and nothing was done.
    enum class Outcome { Queued, NotQueued, WrongSize, GivenBack, Busy };

    // The steps of queueing one buffer, each called by the one before. They check the buffer and
    // fill the pools, take the lock, build the record, and call the service.
    Outcome queueItem(const Item& item, SideBuffers& extradata);

    bool isQueueableId(uint32_t id, bool isInput) const;
    Outcome queueSource(const Item& item, SideBuffers& extradata);
    Outcome queueOutput(const Item& item);
    void recordExtradata(SideBuffers& extradata, uint64_t timestamp);
    bool take(std::unique_lock<std::mutex>& lock, const Item& item) const;
    Outcome handOver(const Item& item);
    bool attachMetaBuffers(QueueRecord& record, uint64_t timestamp) const;
    QueueRecord::Shared attachVectors(QueueRecord& record, const sp<GraphicBuffer>& forward,
                                      const sp<GraphicBuffer>& backward) const;
    QueueRecord::Shared attachDownscaled(QueueRecord& record,
                                         const sp<GraphicBuffer>& downscaled) const;
    bool attachPixels(QueueRecord& record, const Item& item) const;
    Outcome call(const QueueRecord::VppBuffer& record, bool isInput);
    void traceOutstanding() const;

    const Peers p;
    const SessionLog& mLog;
};

}  // namespace android
