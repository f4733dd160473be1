// SPDX-License-Identifier: Apache-2.0
// Buffers that the service gives back. Private to src/.
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

// Decides from a returned record what the memory was and where it goes: to its pool, straight to
// the client, or into the delivery queue for the output worker. Runs on binder threads, several at
// once; takes leaf locks, one at a time, and waits for nobody but the client's own callback.
class ReturnHandler {
  public:
    using VppBuffer = ::aidl::vendor::vuq::hardware::vpp::VppBuffer;

    struct Peers {
        YuvPool& yuvPool;
        SideBufferPool& sidePool;
        OutstandingBuffers& outstanding;
        DeliveryQueue& delivery;
        OutputWorker& worker;
        std::atomic<uint64_t>& lastOutputTimestamp;  // a stale value only picks another segment
        const ClientCallback& client;
        const SessionLog& log;
    };

    explicit ReturnHandler(const Peers& peers) : p(peers), mLog(peers.log) {}

    // The service needs a source frame no longer. A target of the component's own is free for the
    // next frame, one of the client's goes back to it on this thread.
    void onInputDone(const VppBuffer& buffer);
    // The service returns an output buffer, or a source that it has passed through. Both go to the
    // client by way of the worker, but for what is the component's own.
    void onOutputDone(const VppBuffer& buffer);

    // Gives the client every buffer of its own that the service had.
    void onServiceDied();

  private:
    // With a message when it is not.
    bool isExpected(const OutstandingBuffers::Return& returned, const char* operation) const;
    // Puts one of the client's buffers into the delivery queue.
    void deliver(uint32_t id, const VppBuffer& buffer);

    const Peers p;
    const SessionLog& mLog;
};

}  // namespace android
