// SPDX-License-Identifier: Apache-2.0
#include "qozplay/media/Types.h"

extern "C" {
#include <libavutil/mathematics.h>
#include <libavutil/parseutils.h>
}

#include <algorithm>
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
    constexpr int kLimit = kMaxSide;
    int width = 0;
    int height = 0;
    if (av_parse_video_size(&width, &height, text.c_str()) < 0 ||
        std::max(width, height) > kLimit) {
        throw BadInput(format("a size looks like 1280x720, and no side is above %d", kLimit));
    }
    return {static_cast<uint32_t>(width), static_cast<uint32_t>(height)};
}

AVRational parseRate(const std::string& text) {
    // Timestamps are in microseconds, and interpolated frames need different ones.
    constexpr int kFastest = 100'000;
    AVRational rate{};
    if (av_parse_video_rate(&rate, text.c_str()) < 0 || rate.num / rate.den > kFastest) {
        throw BadInput(
            format("a rate looks like 30, 29.97 or 30000/1001, and is at most %d", kFastest));
    }
    return rate;
}

int64_t timestampOf(AVRational rate, uint64_t frame) {
    return av_rescale_q(static_cast<int64_t>(frame), av_inv_q(rate), {1, 1'000'000'000});
}

std::string toText(AVRational rate) {
    return rate.num % rate.den == 0 ? std::to_string(rate.num / rate.den)
                                    : format("%.3f", av_q2d(rate));
}

}  // namespace qozplay
