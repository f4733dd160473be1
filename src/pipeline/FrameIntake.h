// SPDX-License-Identifier: Apache-2.0
// Handling of the packets that process() receives. Private to src/.
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
// A source belongs to the client again if the result is kRefused, or when onBufferDone() reports
// its slot. A converted source is reported after its conversion, or one frame later if it is the
// reference frame for motion estimation; an unconverted one when the service has read it. An output
// buffer that is taken is returned, with or without a frame, unless the service keeps it when
// disable() closes the session.
//
// In steady state no memory is allocated for a frame, because targets and side buffers come from
// the pools.
class FrameIntake {
  public:
    struct Members {
        bool& needAdditionalBuffer;
        SideBuffers& extraBuffers;  // the current frame's, until they are queued
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

    // Returns a QOZResult.
    int32_t process(const std::vector<QOZBufferInfo>* source, const QOZBufferInfo* output);

    // Returns whether the session is ACTIVE for exactly this source size and format.
    bool isInputPortEnabled(uint32_t width, uint32_t height, uint32_t format) EXCLUDES(p.lock);

  private:
    // Returns false, with a message, if there is no worker: buffers would never be returned.
    bool isEnabled() const;

    // Output buffers. takeOutput() takes one on any thread, also from within a callback.
    int32_t takeOutput(const QOZBufferInfo& output);
    // How a step of takeOutput() ended. Retry means that another thread has posted a start, or has
    // begun a session, since the steps began.
    enum class Step { Done, Refused, Retry };
    // Starts a session that is INIT, with the buffer's size and format. `waits` is null within a
    // callback, which must not wait; the same holds for queueOutput().
    Step startFor(const QOZBufferInfo& output, WaitBudget* waits);
    Step queueOutput(const QOZBufferInfo& output, WaitBudget* waits);
    Step retry(const WaitBudget* waits) const;
    Step refuseForNow() const;

    // Steps for a source packet, in the order in which they run. A step returns whether to
    // continue, or the result of process().
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
    // Lets a start for an output buffer, which passes it, and a source that comes in INIT, which
    // closes it, take turns: both use and change the settings and sizes of the stream, and they may
    // be on different threads.
    Gate mStartGate;
};

}  // namespace android
