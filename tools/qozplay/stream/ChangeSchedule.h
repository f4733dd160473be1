// SPDX-License-Identifier: Apache-2.0
// The plan of a session: its settings, and the changes that --at makes while frames flow.
#pragma once

#include <array>
#include <optional>
#include <string_view>
#include <vector>

#include "qozplay/media/Types.h"

namespace qozplay {

// One change at one source frame: a new interpolation factor, upscale ratio or size. A change with
// none of these is a flush.
struct Change {
    bool flushes() const { return !interp && !upscale && !size; }

    uint64_t frame = 0;               // number of the source frame; the first is 0
    std::string text;                 // as given, without the frame
    std::optional<uint32_t> interp;   // interpolated frames for each source frame
    std::optional<uint32_t> upscale;  // index of a ratio
    std::optional<Size> size;         // the size to which source frames are scaled
};

// The upscale ratios; the index is the one that the component uses.
constexpr std::array<std::string_view, 3> kUpscaleRatios{"1", "1.5", "2"};

// parseUpscale() returns the index of a ratio. parseChange() parses "30:interp=2",
// "60:upscale=1.5", "90:size=960x540" and "120:flush". Both throw BadInput.
uint32_t parseUpscale(const std::string& text);
Change parseChange(const std::string& text);

// The options that concern one session. The session owns its copy and uses it on its own thread.
struct SessionPlan {
    std::string name;
    uint32_t interp = 1;
    uint32_t upscaleIndex = 0;
    bool aisOnly = false;
    std::optional<uint64_t> frames;  // greatest number of source frames; nullopt: the whole clip
    std::vector<Change> changes;
    bool verify = false;
    bool diagnostics = false;  // enables the component's log messages
};

// Removes the changes that are due at source frame `frame` and returns them, ordered by frame.
std::vector<Change> takeDue(std::vector<Change>& changes, uint64_t frame);

}  // namespace qozplay
