// SPDX-License-Identifier: Apache-2.0
// Counts the graphic buffers that components allocate after the first frames of a run.
#pragma once

#include <host/control.h>

#include <atomic>
#include <optional>

#include "client/BufferRing.h"

namespace qozplay {

// A component allocates its buffers during the first frames; later allocations indicate that the
// service keeps buffers. The host simulator counts buffers for the whole process, so counting
// starts when the last session of the run has sent its first frames. Owned by the player and shared
// by all sessions.
class WarmUp {
  public:
    explicit WarmUp(uint32_t sessions) : mWaitingFor(sessions) {}

    // Each session calls this once, on its own thread, when it has sent its first frames.
    void passed() {
        if (--mWaitingFor == 0) mBase = madeByComponents();
    }

    // The number of buffers allocated since then; nullopt if a session sent too few frames. Must be
    // called after all sessions have ended.
    std::optional<uint64_t> since() const {
        if (mWaitingFor != 0) return std::nullopt;
        return madeByComponents() - mBase;
    }

  private:
    static uint64_t madeByComponents() {
        return qoz::host::counters().graphicBuffersMade - qoz::client::clientBuffersMade();
    }

    std::atomic<uint32_t> mWaitingFor;  // number of sessions that have not called passed()
    uint64_t mBase = 0;                 // count at the start; written by the last such session
};

}  // namespace qozplay
