// SPDX-License-Identifier: Apache-2.0
// Tells whether a sanitizer slows this build down, on which time limits depend.
#pragma once

namespace qoz::test {

#if defined(__has_feature)
#if __has_feature(address_sanitizer) || __has_feature(thread_sanitizer)
#define QOZ_SANITIZED
#endif
#endif
#if defined(__SANITIZE_THREAD__) || defined(__SANITIZE_ADDRESS__)
#define QOZ_SANITIZED
#endif

#ifdef QOZ_SANITIZED
constexpr bool kSanitized = true;
#else
constexpr bool kSanitized = false;
#endif

}  // namespace qoz::test
