// SPDX-License-Identifier: Apache-2.0
#include "qozplay/stream/ChangeSchedule.h"

#include <algorithm>
#include <iterator>
#include <limits>
#include <utility>

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
        change.kind = Change::Kind::Interp;
        change.value = static_cast<uint32_t>(parseNumber(value, 3));
    } else if (name == "upscale=") {
        change.kind = Change::Kind::Upscale;
        change.value = parseUpscale(value);
    } else if (name == "size=") {
        change.kind = Change::Kind::Size;
        change.size = parseSize(value);
    } else {
        throw BadInput(change.text + " is none of interp=, upscale=, size= and flush");
    }
    return change;
}

ChangeSchedule::ChangeSchedule(std::vector<Change> changes) : mChanges(std::move(changes)) {
    std::stable_sort(mChanges.begin(), mChanges.end(),
                     [](const Change& a, const Change& b) { return a.frame < b.frame; });
}

std::vector<Change> ChangeSchedule::due(uint64_t frame) {
    const auto end = std::find_if(mChanges.begin(), mChanges.end(),
                                  [&](const Change& change) { return change.frame > frame; });
    std::vector<Change> now(std::make_move_iterator(mChanges.begin()),
                            std::make_move_iterator(end));
    mChanges.erase(mChanges.begin(), end);
    return now;
}

}  // namespace qozplay
