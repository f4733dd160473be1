// The frames of one session in the trace: an arrow from the process() that sent a frame to every
// buffer that comes back because of it, and counters of what is lent. Any thread; nothing but one
// look while no trace runs.
#pragma once

#include <host/control.h>

#include <cstddef>
#include <cstdint>
#include <map>
#include <mutex>
#include <string>

namespace qozplay {

class FrameTrace {
  public:
    explicit FrameTrace(const std::string& session);

    // Within the slice of the process() that takes the frame.
    void sent(int32_t slot, uint64_t timestamp);

    // Within the slice of the onBufferDone() that gives a source or a frame back. A frame in
    // between belongs to the source after it, which made it possible.
    void came(bool source, int32_t slot, uint64_t timestamp);

    void lent(bool source, size_t count);

  private:
    static constexpr size_t kRemembered = 64;  // frames

    struct Sent {
        int32_t slot;
        qoz::host::TracePoint point;
    };

    const std::string mSourcesLent;  // names of the counters
    const std::string mOutputsLent;
    std::mutex mLock;
    std::map<uint64_t, Sent> mSent;  // by timestamp
};

}  // namespace qozplay
