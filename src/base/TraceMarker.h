// SPDX-License-Identifier: Apache-2.0
// Trace sections and markers of the buffer path, under the graphics tag. Private to src/.
#pragma once

#define ATRACE_TAG ATRACE_TAG_GRAPHICS
#include <utils/Trace.h>

#include <array>
#include <cstdio>

// Emits an empty trace section whose name contains numbers. The name is formatted into `size`
// bytes. Does nothing while tracing is off.
#define VPP_TRACE_MARKER(size, format, ...)                                \
    do {                                                                   \
        if (ATRACE_ENABLED() != 0) {                                       \
            std::array<char, size> markerName{};                           \
            std::snprintf(markerName.data(), size, format, ##__VA_ARGS__); \
            ATRACE_BEGIN(markerName.data());                               \
            ATRACE_END();                                                  \
        }                                                                  \
    } while (false)
