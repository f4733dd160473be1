// SPDX-License-Identifier: Apache-2.0
// Handling of buffers that the service returns. Private to src/.
#pragma once

#include <aidl/vendor/vuq/hardware/vpp/VppBuffer.h>

#include <atomic>
#include <cstdint>

#include "base/ClientCallback.h"
#include "base/Log.h"
#include "pipeline/DeliveryQueue.h"
#include "pipeline/OutputWorker.h"
#include "pipeline/OutstandingBuffers.h"
#include "pipeline/SideBufferPool.h"
#include "pipeline/YuvPool.h"

namespace android {

// Decides from a returned record which buffer it is and where it goes: to its pool, directly to the
// client, or into the delivery queue for the output worker. Runs on binder threads, possibly
// several at once. It takes leaf locks, one at a time, and waits for nothing but the client's own
// callback.
class ReturnHandler {
  public:
    using VppBuffer = ::aidl::vendor::vuq::hardware::vpp::VppBuffer;

    struct Peers {
        YuvPool& yuvPool;
        SideBufferPool& sidePool;
        OutstandingBuffers& outstanding;
        DeliveryQueue& delivery;
        OutputWorker& worker;
        std::atomic<uint64_t>& lastOutputTimestamp;  // a stale value only selects another segment
        const ClientCallback& client;
        const SessionLog& log;
    };

    explicit ReturnHandler(const Peers& peers) : p(peers), mLog(peers.log) {}

    // Handles an input buffer that the service no longer needs. A target of the component's own
    // pool is free for the next frame; a client's buffer is returned to the client on this thread.
    void onInputDone(const VppBuffer& buffer);
    // Handles an output buffer that the service returns, or an input buffer that it has passed
    // through. The worker delivers the client's buffers; the component's own buffers become free
    // again.
    void onOutputDone(const VppBuffer& buffer);

    // Returns every buffer of the client that the service had.
    void onServiceDied();

    // After disable() there is no worker. With `direct`, the thread that returns an output buffer
    // delivers it. The caller makes a delivery run afterwards, so that no
    // buffer stays in the queue that was stored just before.
    void deliverDirectly(bool direct) { mDeliversDirectly = direct; }

  private:
    // Returns false, with a message, if the buffer was returned when the service died.
    bool isExpected(const OutstandingBuffers::Return& returned, const char* operation) const;
    // The numbers of frames that the pools had recorded before it was decided what a return frees.
    struct Records {
        uint32_t sides;
        uint32_t targets;
    };
    Records records() const { return {p.sidePool.records(), p.yuvPool.records()}; }
    // Make the entries of one pool free whose keys the return frees.
    void freeSides(const OutstandingBuffers::Return& returned, const Records& before,
                   const char* operation) const;
    void freeTargets(const OutstandingBuffers::Return& returned, const Records& before,
                     const char* operation) const;
    // Queues one of the client's buffers for delivery.
    void deliver(uint32_t id, const VppBuffer& buffer);

    const Peers p;
    const SessionLog& mLog;
    std::atomic<bool> mDeliversDirectly{false};
};

}  // namespace android
