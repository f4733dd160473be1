// SPDX-License-Identifier: Apache-2.0
// Definitions that the whole player uses: names from the client kit, errors, and the parsing of
// sizes, rates and numbers.
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

// The input or an option cannot be used. The text is shown to the user; the exit code is 2.
class BadInput : public std::runtime_error {
  public:
    using std::runtime_error::runtime_error;
};

// Returns the text of an exception for the user. Failures to allocate memory and to create a thread
// are put in plain words.
std::string plainly(const std::exception& error);

// The longest side of a clip, in pixels. A header with a longer one is taken to be damaged.
constexpr uint32_t kMaxSide = 16384;

// parseSize() parses "1280x720", parseRate() "30", "29.97" or "30000/1001", and parseNumber() a
// whole decimal number of at most `limit` without surrounding characters. Each throws BadInput with
// the reason if it cannot.
Size parseSize(const std::string& text);
AVRational parseRate(const std::string& text);
uint64_t parseNumber(const std::string& text, uint64_t limit);

// The presentation time of a frame in nanoseconds, at a constant rate.
int64_t timestampOf(AVRational rate, uint64_t frame);

std::string toText(AVRational rate);

}  // namespace qozplay
