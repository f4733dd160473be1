// SPDX-License-Identifier: Apache-2.0
// Counts of what exists, read through counters() in host/control.h.
#pragma once

#include <atomic>
#include <cstdint>

namespace qoz::host {

// Plain tallies: relaxed order is enough, nothing is published through them.
struct ResourceCounters {
    std::atomic<uint64_t> graphicBuffersMade{0};
    std::atomic<uint64_t> graphicBuffersLive{0};
    std::atomic<uint64_t> graphicBytesLive{0};
    std::atomic<uint64_t> nativeHandlesLive{0};
    std::atomic<uint64_t> bindersLive{0};
    std::atomic<uint64_t> sessionsMade{0};
    std::atomic<uint64_t> sessionsLive{0};
};
ResourceCounters& resourceCounters();

}  // namespace qoz::host
