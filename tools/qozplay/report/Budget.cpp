// SPDX-License-Identifier: Apache-2.0
#include <nlohmann/json.hpp>

#include <algorithm>
#include <array>
#include <charconv>
#include <map>
#include <string_view>

#include "qozplay/report/Stats.h"

namespace qozplay {
namespace {

// A figure for which --budget can set a bound.
struct Figure {
    std::string_view name;
    const char* place;  // JSON pointer into the figures of a session
    bool time = false;  // true for a time, whose figure is in milliseconds
    bool most = true;   // true for an upper bound, false for a lower one
};

constexpr std::array kFigures{Figure{"p50", "/latency_ms/p50", true},
                              Figure{"p90", "/latency_ms/p90", true},
                              Figure{"p95", "/latency_ms/p95", true},
                              Figure{"p99", "/latency_ms/p99", true},
                              Figure{"max", "/latency_ms/max", true},
                              Figure{"blocked", "/blocked_ms/max", true},
                              Figure{"lost", "/buffers/lost"},
                              Figure{"missing", "/frames/missing"},
                              Figure{"refused", "/frames/refused"},
                              Figure{"flushed", "/frames/flushed"},
                              Figure{"source", "/frames/source", false, false},
                              Figure{"interpolated", "/frames/interpolated", false, false},
                              Figure{"fps", "/frames/out_per_second", false, false}};

// Finds a figure by its name; throws BadInput if there is none.
const Figure& find(std::string_view name) {
    const auto* found = std::ranges::find(kFigures, name, &Figure::name);
    if (found != kFigures.end()) return *found;
    std::string names;
    for (const Figure& figure : kFigures)
        names.append(names.empty() ? "" : ", ").append(figure.name);
    throw BadInput(std::string(name) + " is none of " + names);
}

}  // namespace

Limit parseLimit(const std::string& text) {
    const size_t equals = text.find('=');
    if (equals == std::string::npos)
        throw BadInput("a bound looks like p95=8ms or interpolated=100");
    const Figure& figure = find(std::string_view(text).substr(0, equals));
    const char* end = text.data() + text.size();
    double value = -1;  // remains negative if the text is not a number or is out of range
    const auto [stop, error] =
        std::from_chars(text.data() + equals + 1, end, value, std::chars_format::fixed);
    static const std::map<std::string_view, double> kUnits{
        {"", 1}, {"us", 0.001}, {"ms", 1}, {"s", 1000}};
    const auto unit = kUnits.find({stop, static_cast<size_t>(end - stop)});
    if (!(value >= 0 && value <= 1e15) || unit == kUnits.end() || (!figure.time && stop != end)) {
        throw BadInput(figure.time ? "not a time like 8ms, 500us or 1.5s"
                                   : "not a number of 0 or more");
    }
    return {std::string(figure.name), value * unit->second};
}

std::vector<std::string> overBudget(const std::vector<Limit>& budget, const SessionStats& stats) {
    const nlohmann::json figures = toJson(stats);
    std::vector<std::string> all;
    for (const Limit& limit : budget) {
        const Figure& figure = find(limit.figure);
        const nlohmann::json& value = figures.at(nlohmann::json::json_pointer(figure.place));
        if (value.is_null()) {
            all.push_back(limit.figure + " has a budget, and no frame came to measure it by");
        } else if (const auto is = value.get<double>();
                   figure.most ? is > limit.value : is < limit.value) {
            const char* unit = figure.time ? " ms" : "";
            all.push_back(format("%s is %.6g%s, %s the budget of %.6g%s", limit.figure.c_str(), is,
                                 unit, figure.most ? "over" : "under", limit.value, unit));
        }
    }
    return all;
}

}  // namespace qozplay
