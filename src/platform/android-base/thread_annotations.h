// SPDX-License-Identifier: Apache-2.0
// Thread-safety annotations, checked by clang with -Wthread-safety.
#pragma once

#include <mutex>

#if defined(__clang__)
#define THREAD_ANNOTATION_ATTRIBUTE__(x) __attribute__((x))
#else
#define THREAD_ANNOTATION_ATTRIBUTE__(x)
#endif

#define SCOPED_CAPABILITY THREAD_ANNOTATION_ATTRIBUTE__(scoped_lockable)
#define GUARDED_BY(x) THREAD_ANNOTATION_ATTRIBUTE__(guarded_by(x))
#define REQUIRES(...) THREAD_ANNOTATION_ATTRIBUTE__(requires_capability(__VA_ARGS__))
#define ACQUIRE(...) THREAD_ANNOTATION_ATTRIBUTE__(acquire_capability(__VA_ARGS__))
#define RELEASE(...) THREAD_ANNOTATION_ATTRIBUTE__(release_capability(__VA_ARGS__))
#define NO_THREAD_SAFETY_ANALYSIS THREAD_ANNOTATION_ATTRIBUTE__(no_thread_safety_analysis)
#define EXCLUDES(...) THREAD_ANNOTATION_ATTRIBUTE__(locks_excluded(__VA_ARGS__))

namespace android::base {

// Tells the analysis that a std::unique_lock in the same scope holds `mutex` until the scope ends.
class SCOPED_CAPABILITY ScopedLockAssertion {
  public:
    explicit ScopedLockAssertion(std::mutex& mutex) ACQUIRE(mutex) { (void)mutex; }
    ~ScopedLockAssertion() RELEASE() {}
};

}  // namespace android::base
