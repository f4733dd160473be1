// SPDX-License-Identifier: Apache-2.0
// Counts the calls of operator new on one thread.
#pragma once

#include <cstddef>
#include <cstdint>
#include <map>

namespace qoz::bench {

// Counts the calling thread's calls from construction to stop(). A thread may have only one of
// these at a time.
class Allocations {
  public:
    Allocations();
    std::map<size_t, uint64_t> stop();  // returns the number of calls by size in bytes
};

}  // namespace qoz::bench
