// SPDX-License-Identifier: Apache-2.0
#include "qozplay/media/Types.h"

#include <charconv>
#include <new>
#include <system_error>

namespace qozplay {

std::string plainly(const std::exception& error) {
    if (dynamic_cast<const std::bad_alloc*>(&error) != nullptr) return "there is too little memory";
    const auto* system = dynamic_cast<const std::system_error*>(&error);
    if (system == nullptr) return error.what();
    if (system->code() == std::errc::resource_unavailable_try_again) {
        return "there is no thread to be had";
    }
    return system->what();
}

uint64_t parseNumber(const std::string& text, uint64_t limit) {
    uint64_t value = 0;
    const char* end = text.data() + text.size();
    const auto [stop, error] = std::from_chars(text.data(), end, value);
    if (text.empty() || stop != end || error == std::errc::invalid_argument) {
        throw BadInput("\"" + text + "\" is not a whole number");
    }
    if (error != std::errc() || value > limit) {
        throw BadInput(text + " is more than " + std::to_string(limit));
    }
    return value;
}

Size parseSize(const std::string& text) {
    const size_t cross = text.find('x');
    if (cross == std::string::npos) throw BadInput("a size looks like 1280x720");
    const auto side = [&](const std::string& part) {
        return static_cast<uint32_t>(parseNumber(part, kMaxSide));
    };
    const Size size{side(text.substr(0, cross)), side(text.substr(cross + 1))};
    if (size.width == 0 || size.height == 0) throw BadInput("a size of 0 holds no picture");
    return size;
}

Rate parseRate(const std::string& text) {
    constexpr uint64_t kLimit = 1'000'000;
    constexpr uint32_t kFastest = 100'000;  // interpolated frames have microseconds of their own
    const size_t slash = text.find('/');
    Rate rate;
    rate.num = static_cast<uint32_t>(parseNumber(text.substr(0, slash), kLimit));
    if (slash != std::string::npos) {
        rate.den = static_cast<uint32_t>(parseNumber(text.substr(slash + 1), kLimit));
    }
    if (rate.num == 0 || rate.den == 0) throw BadInput("a rate of 0 shows no frames");
    if (rate.num / rate.den > kFastest) throw BadInput(format("more than %u a second", kFastest));
    return rate;
}

// In two steps: frames times nanoseconds would not fit.
int64_t timestampOf(Rate rate, uint64_t frame) {
    constexpr uint64_t kNanoseconds = 1'000'000'000;
    const uint64_t ticks = frame * rate.den;
    return static_cast<int64_t>(ticks / rate.num * kNanoseconds +
                                ticks % rate.num * kNanoseconds / rate.num);
}

std::string toText(Rate rate) {
    if (rate.num % rate.den == 0) return std::to_string(rate.num / rate.den);
    return format("%.3f", static_cast<double>(rate.num) / rate.den);
}

}  // namespace qozplay
