// SPDX-License-Identifier: Apache-2.0
// What every part of the client kit uses: clock, sizes, ports and formats, texts.
#pragma once

#include <qoz/VppComponent.h>

#include <chrono>
#include <cstdint>
#include <stdexcept>
#include <string>

namespace qoz::client {

using Clock = std::chrono::steady_clock;

constexpr uint32_t kOutputPort = android::QOZPort::kOutput;
constexpr uint32_t kSourcePort = android::QOZPort::kSource;

// Pixel formats of source and of output buffers, as graphic buffers take them.
constexpr int32_t kRgba = android::QOZFormat::kRgba8888;
constexpr int32_t kNv12Vemo = android::QOZFormat::kNv12Vemo;

struct Size {
    uint32_t width = 0;  // pixels
    uint32_t height = 0;

    bool operator==(const Size&) const = default;
};

// The session did not do its work.
class SessionFailed : public std::runtime_error {
  public:
    using std::runtime_error::runtime_error;
};

// Text as printf() writes it.
std::string format(const char* pattern, ...) __attribute__((__format__(printf, 1, 2)));

// As %llu wants it.
constexpr unsigned long long big(uint64_t value) {
    return value;
}

inline double milliseconds(Clock::duration duration) {
    return std::chrono::duration<double, std::milli>(duration).count();
}

std::string toText(Size size);

// "output 3", "source 101".
std::string bufferName(uint32_t port, int32_t slot);

}  // namespace qoz::client
