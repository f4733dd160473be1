// SPDX-License-Identifier: Apache-2.0
#include "qozplay/cli/LogFilter.h"

#include <sstream>
#include <string_view>

#include "qozplay/media/Types.h"

namespace qozplay {
namespace {

constexpr std::string_view kLetters = "VDIWEFS";

int parsePriority(const std::string& letter) {
    const size_t index = letter.size() == 1 ? kLetters.find(letter[0]) : std::string_view::npos;
    if (index == std::string_view::npos) throw BadInput("the priority is one of V D I W E F S");
    return ANDROID_LOG_VERBOSE + static_cast<int>(index);
}

}  // namespace

LogFilter LogFilter::parse(const std::string& text) {
    LogFilter filter;
    filter.mElse = ANDROID_LOG_VERBOSE;
    std::istringstream words(text);
    for (std::string word; words >> word;) {
        const size_t colon = word.rfind(':');
        const std::string tag = word.substr(0, colon);
        if (tag.empty()) throw BadInput("a filter looks like TAG:PRIORITY");
        const int least = colon == std::string::npos ? ANDROID_LOG_VERBOSE
                                                     : parsePriority(word.substr(colon + 1));
        (tag == "*" ? filter.mElse : filter.mLeast[tag]) = least;
    }
    return filter;
}

bool LogFilter::shows(int priority, const std::string& tag) const {
    const auto own = mLeast.find(tag);
    const int least = own == mLeast.end() ? mElse : own->second;
    return priority >= least && least != ANDROID_LOG_SILENT;
}

}  // namespace qozplay
