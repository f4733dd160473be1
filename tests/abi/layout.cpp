// SPDX-License-Identifier: Apache-2.0
// Prints the sizes and member offsets that a client of the library compiles in. The install test
// compares this output and the exported names with the file beside this one, so that neither
// changes unintentionally.
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
