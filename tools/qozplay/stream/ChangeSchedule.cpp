// SPDX-License-Identifier: Apache-2.0
#include "qozplay/stream/ChangeSchedule.h"

#include <algorithm>
#include <iterator>
#include <limits>

namespace qozplay {

uint32_t parseUpscale(const std::string& text) {
    const auto* found = std::find(kUpscaleRatios.begin(), kUpscaleRatios.end(), text);
    if (found == kUpscaleRatios.end()) throw BadInput("\"" + text + "\" is none of 1, 1.5 and 2");
    return static_cast<uint32_t>(std::distance(kUpscaleRatios.begin(), found));
}

Change parseChange(const std::string& text) {
    const size_t colon = text.find(':');
    if (colon == std::string::npos) {
        throw BadInput("a change looks like 30:interp=2 or 120:flush");
    }
    Change change;
    change.frame = parseNumber(text.substr(0, colon), std::numeric_limits<uint32_t>::max());
    change.text = text.substr(colon + 1);
    if (change.text == "flush") return change;

    const std::string name = change.text.substr(0, change.text.find('=') + 1);
    const std::string value = change.text.substr(name.size());
    if (name == "interp=") {
        change.interp = static_cast<uint32_t>(parseNumber(value, 3));
    } else if (name == "upscale=") {
        change.upscale = parseUpscale(value);
    } else if (name == "size=") {
        change.size = parseSize(value);
    } else {
        throw BadInput(change.text + " is none of interp=, upscale=, size= and flush");
    }
    return change;
}

std::vector<Change> takeDue(std::vector<Change>& changes, uint64_t frame) {
    std::vector<Change> due;
    std::ranges::copy_if(changes, std::back_inserter(due),
                         [&](const Change& change) { return change.frame <= frame; });
    std::ranges::stable_sort(due, {}, &Change::frame);
    std::erase_if(changes, [&](const Change& change) { return change.frame <= frame; });
    return due;
}

}  // namespace qozplay
