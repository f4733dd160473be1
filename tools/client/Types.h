// SPDX-License-Identifier: Apache-2.0
// Definitions that the whole client kit uses: the clock, sizes, ports, pixel formats and text
// functions.
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

// The pixel formats of source and output buffers, as values for the GraphicBuffer constructor.
constexpr int32_t kRgba = android::QOZFormat::kRgba8888;
constexpr int32_t kNv12Vemo = android::QOZFormat::kNv12Vemo;

// The size of a picture.
struct Size {
    uint32_t width = 0;  // pixels
    uint32_t height = 0;

    bool operator==(const Size&) const = default;
};

// A session failed. The text is shown to the user.
class SessionFailed : public std::runtime_error {
  public:
    using std::runtime_error::runtime_error;
};

// Formats a text by the rules of printf().
std::string format(const char* pattern, ...) __attribute__((__format__(printf, 1, 2)));

// Converts a number to the type that %llu needs.
constexpr unsigned long long big(uint64_t value) {
    return value;
}

inline double milliseconds(Clock::duration duration) {
    return std::chrono::duration<double, std::milli>(duration).count();
}

std::string toText(Size size);

// Names a buffer for a message: "output 3", "source 101".
std::string bufferName(uint32_t port, int32_t slot);

}  // namespace qoz::client
