// SPDX-License-Identifier: Apache-2.0
// The resource counters of the host simulator. Tests read them with counters() in host/control.h.
#pragma once

#include <atomic>
#include <cstdint>

namespace qoz::host {

// Incremented and decremented on any thread. All accesses are relaxed, because no other data is
// published through the counters.
struct ResourceCounters {
    std::atomic<uint64_t> graphicBuffersMade{0};
    std::atomic<uint64_t> graphicBuffersLive{0};
    std::atomic<uint64_t> graphicBytesLive{0};
    std::atomic<uint64_t> nativeHandlesLive{0};
    std::atomic<uint64_t> bindersLive{0};
    std::atomic<uint64_t> sessionsMade{0};
    std::atomic<uint64_t> sessionsLive{0};
    std::atomic<uint64_t> memoryQueuedTwice{0};
};
ResourceCounters& resourceCounters();

}  // namespace qoz::host
