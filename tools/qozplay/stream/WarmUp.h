// SPDX-License-Identifier: Apache-2.0
// Counts the graphic buffers that components make once a run has got going. The host simulator
// counts for the whole process, so the line is drawn when the last session has sent its first
// frames.
#pragma once

#include <host/control.h>

#include <atomic>
#include <optional>

#include "client/BufferRing.h"

namespace qozplay {

class WarmUp {
  public:
    explicit WarmUp(uint32_t sessions) : mWaitingFor(sessions) {}

    // By each session once; any thread.
    void passed() {
        if (--mWaitingFor == 0) mBase = madeByComponents();
    }

    // Once the sessions have ended; none when one of them did not get so far.
    std::optional<uint64_t> since() const {
        if (mWaitingFor != 0) return std::nullopt;
        return madeByComponents() - mBase;
    }

  private:
    static uint64_t madeByComponents() {
        return qoz::host::counters().graphicBuffersMade - qoz::client::clientBuffersMade();
    }

    std::atomic<uint32_t> mWaitingFor;  // sessions
    uint64_t mBase = 0;                 // written by the last of them
};

}  // namespace qozplay
