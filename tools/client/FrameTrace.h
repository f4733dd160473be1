// SPDX-License-Identifier: Apache-2.0
// The trace points of one client.
#pragma once

#include <android-base/thread_annotations.h>
#include <host/control.h>

#include <cstddef>
#include <cstdint>
#include <map>
#include <mutex>
#include <string>

namespace qoz::client {

// Draws an arrow in the trace from the process() call that sent a source frame to each
// onBufferDone() call that results from it, and records the number of outstanding buffers as
// counters. Any thread may call it. While no trace is recorded, a call costs one relaxed load.
class FrameTrace {
  public:
    // `session` is part of the counters' names.
    explicit FrameTrace(const std::string& session);

    // Records the start of the arrows for a source frame. Must be called within the slice of the
    // process() call. `timestamp` is in microseconds.
    void sent(int32_t slot, uint64_t timestamp) EXCLUDES(mLock);

    // Draws the arrow to a returned buffer. Must be called within the slice of onBufferDone(). A
    // source buffer is found by its slot, a frame by its timestamp. The arrow to an interpolated
    // frame begins at the source frame that follows it, because it was made when that one arrived.
    void returned(bool source, int32_t slot, uint64_t timestamp) EXCLUDES(mLock);

    void outstanding(bool source, size_t count);

  private:
    static constexpr size_t kRemembered = 64;  // source frames; older ones get no arrows

    struct Sent {
        int32_t slot;
        qoz::host::TracePoint point;
    };

    const std::string mSourcesOutstanding;  // names of the counters
    const std::string mOutputsOutstanding;
    std::mutex mLock;
    std::map<uint64_t, Sent> mSent GUARDED_BY(mLock);  // by timestamp
};

}  // namespace qoz::client
