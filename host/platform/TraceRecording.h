// SPDX-License-Identifier: Apache-2.0
// The events of a trace, in the form in which they are recorded and passed to the writer.
#pragma once

#include <array>
#include <cstdint>
#include <string>
#include <vector>

namespace qoz::host {

// An event of one thread. It has a fixed size, so that recording allocates nothing.
struct TraceEvent {
    enum class Kind : uint8_t { Begin, End, Counter, Arrow };

    Kind kind;
    int64_t at;  // nanoseconds, monotonic
    union {
        int64_t value;  // of a counter
        struct {
            int64_t at;
            int32_t tid;
        } from;  // the start of an arrow, which ends at this event
    };
    std::array<char, 80> name;
};

// The events of one thread, in order.
struct TraceThread {
    int32_t tid = 0;
    std::string name;
    std::vector<TraceEvent> events;
    uint64_t dropped = 0;  // events after the memory for the thread was full
};

// Writes Chrome trace JSON. `end` is the time at which slices that are still open are closed.
// Returns false if the file cannot be written.
bool writeTrace(const std::string& path, const std::vector<TraceThread>& threads, int64_t end);

}  // namespace qoz::host
