// SPDX-License-Identifier: Apache-2.0
// Prints what a client compiles in of the library: sizes, and where the members of its records are.
// The install test compares it, and the names that the library exports, with the kept file beside
// this one, so that a change of either is a decision.
#include <qoz/VppComponent.h>

#include <cstddef>
#include <cstdio>

using android::ConfigParams;
using android::QOZBufferInfo;
using android::VppComponent;

#define MEMBER(record, member) \
    std::printf(#record "::" #member " at %zu\n", offsetof(record, member))
#define SIZE(record) \
    std::printf(#record ": %zu bytes, aligned to %zu\n", sizeof(record), alignof(record))

int main() {
    SIZE(VppComponent);
    SIZE(ConfigParams);
    MEMBER(ConfigParams, mode);
    MEMBER(ConfigParams, reserved);
    MEMBER(ConfigParams, interpFactor);
    MEMBER(ConfigParams, upscaleIndex);
    SIZE(QOZBufferInfo);
    MEMBER(QOZBufferInfo, slot);
    MEMBER(QOZBufferInfo, buffer);
    MEMBER(QOZBufferInfo, fence);
    MEMBER(QOZBufferInfo, timestamp);
    MEMBER(QOZBufferInfo, config);
    SIZE(RequestInfo);
    SIZE(android::IQOZCallback);
    return 0;
}
