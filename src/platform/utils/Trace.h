// SPDX-License-Identifier: Apache-2.0
// System trace. A source file defines ATRACE_TAG before it includes this header.
#pragma once

#include <cstdint>

#define ATRACE_TAG_NEVER 0
#define ATRACE_TAG_GRAPHICS (1 << 1)

#ifndef ATRACE_TAG
#define ATRACE_TAG ATRACE_TAG_NEVER
#endif

// The tags that are traced now, and what writes to the trace: behind the macros below.
extern "C" {
extern uint64_t atrace_enabled_tags;
void atrace_begin_body(const char* name);
void atrace_end_body();
}  // extern "C"

// A point that reads a stale value is traced or left out; nothing else hangs on it.
static inline uint64_t atrace_get_enabled_tags() {
    return __atomic_load_n(&atrace_enabled_tags, __ATOMIC_RELAXED);
}

static inline uint64_t atrace_is_tag_enabled(uint64_t tag) {
    return atrace_get_enabled_tags() & tag;
}
static inline void atrace_begin(uint64_t tag, const char* name) {
    if (atrace_is_tag_enabled(tag) != 0) atrace_begin_body(name);
}
static inline void atrace_end(uint64_t tag) {
    if (atrace_is_tag_enabled(tag) != 0) atrace_end_body();
}

namespace android {

// A section from construction to the end of its block.
class ScopedTrace {
  public:
    ScopedTrace(uint64_t tag, const char* name) : mTag(tag) { atrace_begin(mTag, name); }
    ~ScopedTrace() { atrace_end(mTag); }

    ScopedTrace(const ScopedTrace&) = delete;
    ScopedTrace& operator=(const ScopedTrace&) = delete;

  private:
    const uint64_t mTag;
};

}  // namespace android

// What sources use, under their own tag. Sections nest, and each begin has its end on the same
// thread.
#define ATRACE_ENABLED() atrace_is_tag_enabled(ATRACE_TAG)
#define ATRACE_BEGIN(name) atrace_begin(ATRACE_TAG, name)
#define ATRACE_END() atrace_end(ATRACE_TAG)
#define ATRACE_CONCAT_(a, b) a##b
#define ATRACE_CONCAT(a, b) ATRACE_CONCAT_(a, b)
#define ATRACE_NAME(name) \
    ::android::ScopedTrace ATRACE_CONCAT(scopedTrace, __LINE__)(ATRACE_TAG, name)
