// SPDX-License-Identifier: Apache-2.0
// What a trace is made of, between its recording and its writing.
#pragma once

#include <array>
#include <cstdint>
#include <string>
#include <vector>

namespace qoz::host {

struct TraceEvent {
    enum class Kind : uint8_t { Begin, End, Counter, Arrow };

    Kind kind;
    int64_t at;  // nanoseconds, monotonic
    union {
        int64_t value;  // of a counter
        struct {
            int64_t at;
            int32_t tid;
        } from;  // of an arrow, which ends at this event
    };
    std::array<char, 80> name;
};

struct TraceThread {
    int32_t tid = 0;
    std::string name;
    std::vector<TraceEvent> events;
    uint64_t dropped = 0;  // after the thread's share was full
};

// Chrome trace JSON. Slices that are open are closed at `end`, and ends without a beginning are
// left out. False: cannot write.
bool writeTrace(const std::string& path, const std::vector<TraceThread>& threads, int64_t end);

}  // namespace qoz::host
