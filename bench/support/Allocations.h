// SPDX-License-Identifier: Apache-2.0
// Counts what goes through operator new on the thread that asks.
#pragma once

#include <cstddef>
#include <cstdint>
#include <map>

namespace qoz::bench {

// Calls by size in bytes, from construction to stop(). One at a time on a thread.
class Allocations {
  public:
    Allocations();
    std::map<size_t, uint64_t> stop();
};

}  // namespace qoz::bench
