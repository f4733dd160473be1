// SPDX-License-Identifier: Apache-2.0
// Buffers on their way to the service. Private to src/.
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

// Turns one graphic buffer into one record and queues it. For a source frame it first records under
// the frame's timestamp what travels with it, so that its return can give that back to the pools.
//
// Sources come from the client's thread, output buffers from any thread that has passed the
// gate for them. The component's lock is held from building the record to the end of the call, so
// that buffers reach the service in the order of their queueing.
class ServiceQueue {
  public:
    struct Peers {
        const bool& needAdditionalBuffer;  // the target of this frame is one of the YUV pool
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

    // `cookie` is the buffer's id, `timestamp` in microseconds for a source. False: it was not
    // queued. Then a buffer of the client's has gone back to it, invalid, and one of the pool's own
    // is free for the next frame. A source's side buffers are moved from.
    bool queue(const sp<GraphicBuffer>& buffer, SideBuffers& extradata, uint32_t cookie,
               uint64_t timestamp, bool isInput);

    // The same for an output buffer that a callback brings. The service may be waiting for that
    // callback before it answers a call that another thread makes under the component's lock, so
    // the lock is waited for no longer than such a call takes. False: the buffer is still the
    // client's.
    bool queueFromCallback(const sp<GraphicBuffer>& buffer, uint32_t slot, uint64_t timestamp);

    // The second half of queue(): builds the record and hands it over. Gives nothing back.
    bool send(uint32_t cookie, const sp<GraphicBuffer>& buffer, uint64_t timestamp, bool isInput);

    // Whether this thread is within a call that queues a buffer: the service may return one from
    // within that call, and the client queue another in its callback, which would wait for itself.
    bool isOnThisThread() const;

    // Whether an output buffer has the size that the output port has; with a gated message.
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
    // What became of it. GivenBack: the service died during the call, and the client has its
    // buffer. Busy: the component's lock was not to be had in time; nothing has happened.
    enum class Outcome { Queued, NotQueued, GivenBack, Busy };

    // The steps of queueing one buffer, each called by the one before: checks and the pools'
    // entries; the lock; the record; the call.
    Outcome queueItem(const Item& item, SideBuffers& extradata);

    bool isQueueableId(uint32_t id, bool isInput) const;
    Outcome queueSource(const Item& item, SideBuffers& extradata);
    Outcome queueOutput(const Item& item);
    bool recordExtradata(SideBuffers& extradata, uint64_t timestamp);
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
