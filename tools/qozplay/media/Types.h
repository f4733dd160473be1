// SPDX-License-Identifier: Apache-2.0
// Words that every part of the player uses.
#pragma once

extern "C" {
#include <libavutil/rational.h>
}

#include "client/Pixels.h"
#include "client/Types.h"

namespace qozplay {

using qoz::client::big;
using qoz::client::Clock;
using qoz::client::format;
using qoz::client::milliseconds;
using qoz::client::Nv12View;
using qoz::client::SessionFailed;
using qoz::client::Size;
using qoz::client::toText;

// What the user gave cannot be used: exit code 2.
class BadInput : public std::runtime_error {
  public:
    using std::runtime_error::runtime_error;
};

// What the standard library has to say, in plain words where it is known what that means.
std::string plainly(const std::exception& error);

constexpr uint32_t kMaxSide = 16384;  // beyond that a header is taken for nonsense

// Each throws BadInput that says what is wrong with the text: "1280x720"; "30", "29.97" or
// "30000/1001"; a whole decimal number of at most `limit`, nothing around it.
Size parseSize(const std::string& text);
AVRational parseRate(const std::string& text);
uint64_t parseNumber(const std::string& text, uint64_t limit);

// Presentation time of a frame, nanoseconds.
int64_t timestampOf(AVRational rate, uint64_t frame);

std::string toText(AVRational rate);

}  // namespace qozplay
