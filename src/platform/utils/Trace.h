// SPDX-License-Identifier: Apache-2.0
// System tracing. A source file must define ATRACE_TAG before it includes this header; otherwise
// its trace points are never recorded.
#pragma once

#include <cstdint>

#define ATRACE_TAG_NEVER 0
#define ATRACE_TAG_GRAPHICS (1 << 1)

#ifndef ATRACE_TAG
#define ATRACE_TAG ATRACE_TAG_NEVER
#endif

// The enabled tags and the functions that write to the trace. Used only by the macros below.
extern "C" {
extern uint64_t atrace_enabled_tags;
void atrace_begin_body(const char* name);
void atrace_end_body();
}  // extern "C"

// A relaxed load is sufficient: a stale value only records or omits one trace point.
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

// Traces a section from construction to the end of the enclosing block.
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

// The macros for source files; they use the file's own tag. Sections may be nested, and each must
// end on the thread that began it.
#define ATRACE_ENABLED() atrace_is_tag_enabled(ATRACE_TAG)
#define ATRACE_BEGIN(name) atrace_begin(ATRACE_TAG, name)
#define ATRACE_END() atrace_end(ATRACE_TAG)
#define ATRACE_CONCAT_(a, b) a##b
#define ATRACE_CONCAT(a, b) ATRACE_CONCAT_(a, b)
#define ATRACE_NAME(name) \
    ::android::ScopedTrace ATRACE_CONCAT(scopedTrace, __LINE__)(ATRACE_TAG, name)
