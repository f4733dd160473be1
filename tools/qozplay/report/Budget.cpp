// SPDX-License-Identifier: Apache-2.0
#include "qozplay/report/Budget.h"

#include <nlohmann/json.hpp>

#include <algorithm>
#include <array>
#include <charconv>
#include <cmath>
#include <optional>
#include <string_view>

namespace qozplay {
namespace {

enum class Unit { Milliseconds, Plain };
enum class Bound { AtMost, AtLeast };

// A figure that can have a bound.
struct Figure {
    std::string_view name;
    const char* place;  // in the figures of a session
    Unit unit;
    Bound bound;
};

constexpr std::array kFigures{
    Figure{"p50", "/latency_ms/p50", Unit::Milliseconds, Bound::AtMost},
    Figure{"p90", "/latency_ms/p90", Unit::Milliseconds, Bound::AtMost},
    Figure{"p95", "/latency_ms/p95", Unit::Milliseconds, Bound::AtMost},
    Figure{"p99", "/latency_ms/p99", Unit::Milliseconds, Bound::AtMost},
    Figure{"max", "/latency_ms/max", Unit::Milliseconds, Bound::AtMost},
    Figure{"blocked", "/blocked_ms/max", Unit::Milliseconds, Bound::AtMost},
    Figure{"lost", "/buffers/lost", Unit::Plain, Bound::AtMost},
    Figure{"missing", "/frames/missing", Unit::Plain, Bound::AtMost},
    Figure{"refused", "/frames/refused", Unit::Plain, Bound::AtMost},
    Figure{"flushed", "/frames/flushed", Unit::Plain, Bound::AtMost},
    Figure{"source", "/frames/source", Unit::Plain, Bound::AtLeast},
    Figure{"interpolated", "/frames/interpolated", Unit::Plain, Bound::AtLeast},
    Figure{"fps", "/frames/out_per_second", Unit::Plain, Bound::AtLeast},
};

const Figure& find(std::string_view name) {
    const auto* found = std::find_if(kFigures.begin(), kFigures.end(),
                                     [&](const Figure& figure) { return figure.name == name; });
    if (found != kFigures.end()) return *found;
    std::string names;
    for (const Figure& figure : kFigures)
        names += (names.empty() ? "" : ", ") + std::string(figure.name);
    throw BadInput(std::string(name) + " is none of " + names);
}

// The factor from the word's unit to that of the figure; none for a word that is no unit of it.
std::optional<double> scaleOf(std::string_view word, Unit unit) {
    if (word.empty()) return 1;
    if (unit == Unit::Plain) return std::nullopt;
    if (word == "us") return 0.001;
    if (word == "ms") return 1;
    if (word == "s") return 1000;
    return std::nullopt;
}

}  // namespace

Limit parseLimit(const std::string& text) {
    const size_t equals = text.find('=');
    if (equals == std::string::npos) {
        throw BadInput("a bound looks like p95=8ms or interpolated=100");
    }
    const std::string name = text.substr(0, equals);
    const Figure& figure = find(name);
    const char* end = text.data() + text.size();
    double value = 0;
    const auto [stop, error] =
        std::from_chars(text.data() + equals + 1, end, value, std::chars_format::fixed);
    const auto scale = scaleOf({stop, static_cast<size_t>(end - stop)}, figure.unit);
    if (error != std::errc() || !scale || !std::isfinite(value) || value < 0) {
        throw BadInput(figure.unit == Unit::Milliseconds ? "not a time like 8ms, 500us or 1.5s"
                                                         : "not a number of 0 or more");
    }
    return {name, value * *scale};
}

std::vector<std::string> overBudget(const std::vector<Limit>& budget, const SessionStats& stats) {
    const nlohmann::json figures = toJson(stats);
    std::vector<std::string> all;
    for (const Limit& limit : budget) {
        const Figure& figure = find(limit.figure);
        const nlohmann::json& value = figures.at(nlohmann::json::json_pointer(figure.place));
        const char* name = limit.figure.c_str();
        const char* unit = figure.unit == Unit::Milliseconds ? " ms" : "";
        const bool most = figure.bound == Bound::AtMost;
        if (value.is_null()) {
            all.push_back(format("%s has a budget, and no frame came to measure it by", name));
        } else if (most ? value.get<double>() > limit.value : value.get<double>() < limit.value) {
            all.push_back(format("%s is %.6g%s, %s the budget of %.6g%s", name, value.get<double>(),
                                 unit, most ? "over" : "under", limit.value, unit));
        }
    }
    return all;
}

}  // namespace qozplay
