// SPDX-License-Identifier: Apache-2.0
// The frames of one session in the trace: an arrow from the process() that sent a frame to every
// buffer that is returned because of it, and counters of what is outstanding. Any thread; without a
// running trace each call is one relaxed load.
#pragma once

#include <android-base/thread_annotations.h>
#include <host/control.h>

#include <cstddef>
#include <cstdint>
#include <map>
#include <mutex>
#include <string>

namespace qoz::client {

class FrameTrace {
  public:
    explicit FrameTrace(const std::string& session);

    // Within the slice of the process() that takes the frame.
    void sent(int32_t slot, uint64_t timestamp) EXCLUDES(mLock);

    // Within the slice of the onBufferDone() that returns a source or a frame. An interpolated
    // frame belongs to the source after it, which made it possible.
    void returned(bool source, int32_t slot, uint64_t timestamp) EXCLUDES(mLock);

    void outstanding(bool source, size_t count);

  private:
    static constexpr size_t kRemembered = 64;  // frames

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
