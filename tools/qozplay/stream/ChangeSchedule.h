// SPDX-License-Identifier: Apache-2.0
// What a session does, and the changes while frames flow, as --at names them. Owned by a session,
// and used on its thread.
#pragma once

#include <array>
#include <optional>
#include <string_view>
#include <vector>

#include "qozplay/media/Types.h"

namespace qozplay {

// One of these, or a flush when there is none of them.
struct Change {
    bool flushes() const { return !interp && !upscale && !size; }

    uint64_t frame = 0;               // takes place with this source frame; the first is 0
    std::string text;                 // as given, without the frame
    std::optional<uint32_t> interp;   // interpolated frames for each source frame
    std::optional<uint32_t> upscale;  // a code
    std::optional<Size> size;         // to which source frames are scaled
};

// By the code that stands for them.
constexpr std::array<std::string_view, 3> kUpscaleRatios{"1", "1.5", "2"};

// Both throw BadInput: the code of a ratio; "30:interp=2", "60:upscale=1.5", "90:size=960x540",
// "120:flush".
uint32_t parseUpscale(const std::string& text);
Change parseChange(const std::string& text);

// What a session does, of all that the options say.
struct SessionPlan {
    std::string name;
    uint32_t interp = 1;
    uint32_t upscaleIndex = 0;
    bool aisOnly = false;
    std::optional<uint64_t> frames;  // none: as many as there are
    std::vector<Change> changes;
    bool verify = false;
    bool diagnostics = false;  // of the component
};

// Takes out of the changes what is due with `frame`, in the order of the frames.
std::vector<Change> takeDue(std::vector<Change>& changes, uint64_t frame);

}  // namespace qozplay
