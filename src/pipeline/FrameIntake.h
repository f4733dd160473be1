// SPDX-License-Identifier: Apache-2.0
// The way of a packet through process(). Private to src/.
#pragma once

#include <qoz/ClientTypes.h>

#include <cstdint>
#include <mutex>
#include <vector>

#include "base/BoundedWait.h"
#include "base/ClientCallback.h"
#include "base/Gate.h"
#include "base/Log.h"
#include "base/SessionStatus.h"
#include "pipeline/Converter.h"
#include "pipeline/Flush.h"
#include "pipeline/HeldSlots.h"
#include "pipeline/InBandSettings.h"
#include "pipeline/OutputWorker.h"
#include "pipeline/OutstandingBuffers.h"
#include "pipeline/ServiceQueue.h"
#include "pipeline/SourceFrame.h"
#include "stream/Ports.h"
#include "stream/Reconfiguration.h"
#include "stream/SessionStart.h"
#include "stream/StreamSettings.h"

namespace android {

// Takes source packets on the client's thread, one at a time, and output buffers on any thread.
//
// A source is the client's again when the result says so (kRefused), or when onBufferDone() has
// named its slot: straight after its conversion, or one frame later while it is the reference frame
// of the motion engine. An output buffer that is taken always comes back, filled or not.
//
// Nothing is allocated for a frame in steady state: targets and side buffers come from the pools.
class FrameIntake {
  public:
    struct Members {
        bool& needAdditionalBuffer;
        SideBuffers& extraBuffers;  // of the current frame, until they are queued
    };
    struct Peers {
        YuvPool& yuvPool;
        SideBufferPool& sidePool;
        OutstandingBuffers& outstanding;
        HeldSlots& heldSlots;
        Converter& converter;
        ServiceQueue& queue;
        Flush& flush;
        InBandSettings& inBand;
        Gate& outputGate;
        OutputWorker& worker;
        StreamSettings& settings;
        Ports& ports;
        SessionStart& start;
        Reconfiguration& reconfiguration;
        SessionStatus& status;
        std::mutex& lock;  // of the component
        const ClientCallback& client;
        const WaitLimit& limit;
        const SessionLog& log;
    };

    FrameIntake(const Members& members, const Peers& peers)
        : m(members), p(peers), mLog(peers.log) {}

    // The result codes are those of QOZResult.
    int32_t process(const std::vector<QOZBufferInfo>* source, const QOZBufferInfo* output);

    // Whether the session is ACTIVE for sources of just this size and format.
    bool isInputPortEnabled(uint32_t width, uint32_t height, uint32_t format) EXCLUDES(p.lock);

  private:
    // With a message when it is not: frames of a component without a worker would never come back.
    bool isEnabled() const;

    // Output buffers.
    // One output buffer, on any thread, also from within a callback.
    int32_t takeOutput(const QOZBufferInfo& output);
    // Starts a session that is INIT, with the buffer's size and format. `waits` is null within a
    // callback, which waits for nobody; so it is below.
    bool startFor(const QOZBufferInfo& output, WaitBudget* waits);
    bool queueOutput(const QOZBufferInfo& output, WaitBudget* waits);

    // Source packets, in the order in which one goes through these steps. Each answers whether to
    // go on, or the result.
    int32_t takeSource(const std::vector<QOZBufferInfo>& packet, WaitBudget& waits);
    int32_t queueUnconverted(SourceFrame& frame, const std::vector<QOZBufferInfo>& packet);
    int32_t acceptDummy(SourceFrame& frame);
    bool chooseTarget(SourceFrame& frame, const std::vector<QOZBufferInfo>& packet);
    int32_t convertAndQueue(SourceFrame& frame);
    bool adoptSourceSize(SourceFrame& frame);
    bool requestBuffers(SourceFrame& frame);
    bool requestTarget(SourceFrame& frame);
    bool requestSideBuffers(SourceFrame& frame);
    bool convert(SourceFrame& frame);

    const Members m;
    const Peers p;
    const SessionLog& mLog;
};

}  // namespace android
