// SPDX-License-Identifier: Apache-2.0
#include "qozplay/report/Budget.h"

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

struct Figure {
    std::string_view name;
    Unit unit;
    Bound bound;
    std::optional<double> (*of)(const SessionStats&);  // none: there is nothing to measure
};

template <int kPercent>
std::optional<double> latency(const SessionStats& stats) {
    if (stats.frames.latencies.empty()) return std::nullopt;
    return percentile(stats.frames.latencies, kPercent / 100.0);
}

std::optional<double> blocked(const SessionStats& stats) {
    if (stats.blocked.empty()) return std::nullopt;
    return percentile(stats.blocked, 1);
}

std::optional<double> lost(const SessionStats& stats) {
    return static_cast<double>(stats.ledger.outstanding());
}

template <uint64_t FrameTracker::Tally::*kCount>
std::optional<double> frames(const SessionStats& stats) {
    return static_cast<double>(stats.frames.*kCount);
}

std::optional<double> fps(const SessionStats& stats) {
    return perSecond(stats.frames.source + stats.frames.interpolated, stats.seconds);
}

using Tally = FrameTracker::Tally;
constexpr std::array kFigures{
    Figure{"p50", Unit::Milliseconds, Bound::AtMost, latency<50>},
    Figure{"p90", Unit::Milliseconds, Bound::AtMost, latency<90>},
    Figure{"p95", Unit::Milliseconds, Bound::AtMost, latency<95>},
    Figure{"p99", Unit::Milliseconds, Bound::AtMost, latency<99>},
    Figure{"max", Unit::Milliseconds, Bound::AtMost, latency<100>},
    Figure{"blocked", Unit::Milliseconds, Bound::AtMost, blocked},
    Figure{"lost", Unit::Plain, Bound::AtMost, lost},
    Figure{"missing", Unit::Plain, Bound::AtMost, frames<&Tally::missing>},
    Figure{"refused", Unit::Plain, Bound::AtMost, frames<&Tally::refused>},
    Figure{"flushed", Unit::Plain, Bound::AtMost, frames<&Tally::flushed>},
    Figure{"source", Unit::Plain, Bound::AtLeast, frames<&Tally::source>},
    Figure{"interpolated", Unit::Plain, Bound::AtLeast, frames<&Tally::interpolated>},
    Figure{"fps", Unit::Plain, Bound::AtLeast, fps},
};

const Figure* find(std::string_view name) {
    const auto* found = std::find_if(kFigures.begin(), kFigures.end(),
                                     [&](const Figure& figure) { return figure.name == name; });
    return found == kFigures.end() ? nullptr : found;
}

// Milliseconds in one of the unit, or none for a word that is no unit.
std::optional<double> scaleOf(std::string_view word, Unit unit) {
    if (word.empty()) return 1;
    if (unit == Unit::Plain) return std::nullopt;
    if (word == "us") return 0.001;
    if (word == "ms") return 1;
    if (word == "s") return 1000;
    return std::nullopt;
}

Limit parseLimit(const std::string& text) {
    const std::string what = "--budget " + text + ": ";
    const size_t equals = text.find('=');
    if (equals == std::string::npos)
        throw BadInput(what + "a bound looks like p95=8ms or interpolated=100");
    const std::string name = text.substr(0, equals);
    const Figure* figure = find(name);
    if (figure == nullptr) throw BadInput(what + name + " is none of " + budgetNames());
    const char* end = text.data() + text.size();
    double value = 0;
    const auto [stop, error] =
        std::from_chars(text.data() + equals + 1, end, value, std::chars_format::fixed);
    const auto scale = scaleOf({stop, static_cast<size_t>(end - stop)}, figure->unit);
    if (error != std::errc() || !scale || !std::isfinite(value) || value < 0) {
        throw BadInput(what + (figure->unit == Unit::Milliseconds
                                   ? "not a time like 8ms, 500us or 1.5s"
                                   : "not a number of 0 or more"));
    }
    return {name, value * *scale};
}

}  // namespace

std::string budgetNames() {
    std::string names;
    for (const Figure& figure : kFigures) {
        names += (names.empty() ? "" : ", ") + std::string(figure.name);
    }
    return names;
}

std::vector<Limit> parseBudget(const std::string& text) {
    std::vector<Limit> budget;
    size_t begin = 0;
    for (size_t comma = 0; comma != std::string::npos; begin = comma + 1) {
        comma = text.find(',', begin);
        budget.push_back(parseLimit(text.substr(begin, comma - begin)));
    }
    return budget;
}

std::vector<std::string> overBudget(const std::vector<Limit>& budget, const SessionStats& stats) {
    std::vector<std::string> all;
    for (const Limit& limit : budget) {
        const Figure& figure = *find(limit.figure);
        const std::optional<double> value = figure.of(stats);
        const char* name = limit.figure.c_str();
        const char* unit = figure.unit == Unit::Milliseconds ? " ms" : "";
        const bool most = figure.bound == Bound::AtMost;
        if (!value) {
            all.push_back(format("%s has a budget, and no frame came to measure it by", name));
        } else if (most ? *value > limit.value : *value < limit.value) {
            all.push_back(format("%s is %.6g%s, %s the budget of %.6g%s", name, *value, unit,
                                 most ? "over" : "under", limit.value, unit));
        }
    }
    return all;
}

}  // namespace qozplay
