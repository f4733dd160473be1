// SPDX-License-Identifier: Apache-2.0
#include "support/Allocations.h"

#include <algorithm>
#include <array>
#include <cstdlib>
#include <new>

namespace {

constexpr size_t kSizes = 4096;  // larger allocations are counted as 4095 bytes

// The calls of operator new on one thread by size, counted while `on` is set.
struct Counter {
    bool on = false;
    std::array<uint64_t, kSizes> calls{};
};
thread_local Counter tCounter;

void* take(size_t bytes) noexcept {
    if (tCounter.on) ++tCounter.calls[std::min(bytes, kSizes - 1)];
    return std::malloc(bytes == 0 ? 1 : bytes);
}

// Not inline, because gcc warns of a mismatch if it sees operator new and free() in one function.
[[gnu::noinline]] void release(void* memory) noexcept {
    std::free(memory);
}

}  // namespace

void* operator new(size_t bytes) {
    if (void* memory = take(bytes)) return memory;
    throw std::bad_alloc();
}
void* operator new(size_t bytes, const std::nothrow_t&) noexcept {
    return take(bytes);
}
void operator delete(void* memory) noexcept {
    release(memory);
}
void operator delete(void* memory, size_t) noexcept {
    release(memory);
}

namespace qoz::bench {

Allocations::Allocations() {
    tCounter.calls.fill(0);
    tCounter.on = true;
}

std::map<size_t, uint64_t> Allocations::stop() {
    tCounter.on = false;
    std::map<size_t, uint64_t> found;
    for (size_t size = 0; size < kSizes; ++size) {
        if (tCounter.calls[size] != 0) found[size] = tCounter.calls[size];
    }
    return found;
}

}  // namespace qoz::bench
