// SPDX-License-Identifier: Apache-2.0
// Changes while frames flow, as --at names them. Owned by a session, and used on its thread.
#pragma once

#include <array>
#include <string_view>
#include <vector>

#include "qozplay/media/Types.h"

namespace qozplay {

struct Change {
    enum class Kind {
        Interp,   // `value` interpolated frames for each source frame
        Upscale,  // `value` is the code: 0 = 1x, 1 = 1.5x, 2 = 2x
        Size,     // source frames are scaled to `size`
        Flush,
    };

    uint64_t frame = 0;  // takes place with this source frame; the first is 0
    Kind kind = Kind::Flush;
    uint32_t value = 0;
    Size size;
    std::string text;  // as given, without the frame
};

// By the code that stands for them.
constexpr std::array<std::string_view, 3> kUpscaleRatios{"1", "1.5", "2"};

// Both throw BadInput: the code of a ratio; "30:interp=2", "60:upscale=1.5", "90:size=960x540",
// "120:flush".
uint32_t parseUpscale(const std::string& text);
Change parseChange(const std::string& text);

// What happens with each frame, in the order of the frames.
class ChangeSchedule {
  public:
    explicit ChangeSchedule(std::vector<Change> changes);

    // Takes out what is due with `frame`.
    std::vector<Change> due(uint64_t frame);

    const std::vector<Change>& left() const { return mChanges; }

  private:
    std::vector<Change> mChanges;
};

}  // namespace qozplay
