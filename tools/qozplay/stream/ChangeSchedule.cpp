// SPDX-License-Identifier: Apache-2.0
#include "qozplay/stream/ChangeSchedule.h"

#include <algorithm>
#include <array>
#include <iterator>
#include <limits>
#include <utility>

namespace qozplay {

uint32_t parseInterp(const std::string& text, const std::string& what) {
    return static_cast<uint32_t>(parseNumber(text, 3, what));
}

uint32_t parseUpscale(const std::string& text, const std::string& what) {
    constexpr std::array kRatios{"1", "1.5", "2"};
    const auto* found = std::find(kRatios.begin(), kRatios.end(), text);
    if (found == kRatios.end()) throw BadInput(what + ": " + text + " is none of 1, 1.5 and 2");
    return static_cast<uint32_t>(std::distance(kRatios.begin(), found));
}

Change parseChange(const std::string& text) {
    const std::string what = "--at " + text;
    const size_t colon = text.find(':');
    if (colon == std::string::npos) {
        throw BadInput(what + ": a change looks like 30:interp=2 or 120:flush");
    }
    Change change;
    change.frame = parseNumber(text.substr(0, colon), std::numeric_limits<uint32_t>::max(), what);
    change.text = text.substr(colon + 1);
    if (change.text == "flush") return change;

    const size_t equals = change.text.find('=');
    const std::string name = change.text.substr(0, equals);
    const std::string value =
        equals == std::string::npos ? std::string() : change.text.substr(equals + 1);
    if (name == "interp") {
        change.kind = Change::Kind::Interp;
        change.value = parseInterp(value, what);
    } else if (name == "upscale") {
        change.kind = Change::Kind::Upscale;
        change.value = parseUpscale(value, what);
    } else if (name == "size") {
        change.kind = Change::Kind::Size;
        change.size = parseSize(value, what);
    } else {
        throw BadInput(what + ": " + change.text +
                       " is none of interp=, upscale=, size= and flush");
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
