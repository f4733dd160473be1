// SPDX-License-Identifier: Apache-2.0
#include "client/Types.h"

#include <cstdarg>
#include <cstdio>

namespace qoz::client {

std::string format(const char* pattern, ...) {
    va_list args;
    va_start(args, pattern);
    va_list again;
    va_copy(again, args);
    std::string text(static_cast<size_t>(std::vsnprintf(nullptr, 0, pattern, args)), '\0');
    va_end(args);
    std::vsnprintf(text.data(), text.size() + 1, pattern, again);
    va_end(again);
    return text;
}

std::string toText(Size size) {
    return format("%ux%u", size.width, size.height);
}

std::string bufferName(uint32_t port, int32_t slot) {
    return format("%s %d", port == kOutputPort ? "output" : "source", slot);
}

}  // namespace qoz::client
