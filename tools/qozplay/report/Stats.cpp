// SPDX-License-Identifier: Apache-2.0
#include "qozplay/report/Stats.h"

#include <nlohmann/json.hpp>

#include <algorithm>
#include <array>
#include <cmath>
#include <utility>

namespace qozplay {
namespace {

using nlohmann::json;

constexpr std::array<std::pair<const char*, double>, 5> kShares{
    {{"p50", 0.5}, {"p90", 0.9}, {"p95", 0.95}, {"p99", 0.99}, {"max", 1}}};

// Returns the percentiles of the values by the nearest-rank method; null if there are no values.
json distribution(std::vector<double> values) {
    std::ranges::sort(values);
    json all;
    for (const auto& [name, share] : kShares) {
        const auto rank =
            static_cast<size_t>(std::ceil(share * static_cast<double>(values.size())));
        all[name] = values.empty() ? json() : json(values[rank - 1]);
    }
    return all;
}

std::string distributionText(const std::vector<double>& values) {
    const json all = distribution(values);
    std::string text;
    for (const auto& [name, share] : kShares)
        text += format("%s %.2f  ", name, all[name].is_null() ? 0 : all[name].get<double>());
    return text;
}

// A rate; 0 if no time has passed.
double perSecond(uint64_t count, double seconds) {
    return seconds > 0 ? static_cast<double>(count) / seconds : 0;
}

// One line of the summary, with the name in its own column.
std::string line(const char* name, const std::string& text) {
    return format("%-13s%s\n", name, text.c_str());
}

// The lines of the summary about frames, speed, latency and buffers.
std::string framesText(const SessionStats& stats) {
    const FrameTracker::Tally& frames = stats.frames;
    const Ledger::Totals& totals = stats.ledger.totals();
    const uint64_t out = frames.source + frames.interpolated;
    const double s = stats.seconds;
    std::string text = line(
        "frames", format("%llu in, %llu out: %llu source and %llu interpolated", big(frames.in),
                         big(out), big(frames.source), big(frames.interpolated)));
    if (frames.flushed != 0)
        text += line("", format("%llu cleared away by a flush", big(frames.flushed)));
    return text +
           line("speed", format("%.1f frames in, %.1f out, %.1f interpolated a second, for %.2f s",
                                perSecond(frames.in, s), perSecond(out, s),
                                perSecond(frames.interpolated, s), s)) +
           line("latency", distributionText(frames.latencies) + "ms from in to out") +
           line("blocked", distributionText(stats.blocked) + "ms for each source frame") +
           line("buffers",
                format("%llu queued, %llu returned, %zu lost, %llu refused", big(totals.queued),
                       big(totals.returned), stats.ledger.outstanding(), big(totals.refused)));
}

// The lines of the summary about the changes of the plan and the size of the output.
std::string changesText(const SessionStats& stats) {
    std::string text;
    for (const auto& [change, blocked] : stats.changes) {
        text += line("change", format("frame %llu: %s, blocked %.1f ms", big(change.frame),
                                      change.text.c_str(), blocked));
    }
    for (const Change& change : stats.notReached) {
        text += line("change",
                     format("frame %llu: %s, not reached", big(change.frame), change.text.c_str()));
    }
    const std::string first = toText(stats.firstOutput);
    if (stats.firstOutput != stats.lastOutput) {
        text += line("size", first + " at first, " + toText(stats.lastOutput) +
                                 " at last; written as " + first);
    }
    return text;
}

json sizeJson(Size size) {
    return {{"width", size.width}, {"height", size.height}};
}

json framesJson(const SessionStats& stats) {
    const FrameTracker::Tally& frames = stats.frames;
    const uint64_t out = frames.source + frames.interpolated;
    return {{"in", frames.in},
            {"out", out},
            {"source", frames.source},
            {"interpolated", frames.interpolated},
            {"refused", frames.refused},
            {"flushed", frames.flushed},
            {"missing", frames.missing},
            {"out_of_order", frames.backwards},
            {"out_per_second", perSecond(out, stats.seconds)},
            {"interpolated_per_second", perSecond(frames.interpolated, stats.seconds)}};
}

json buffersJson(const Ledger& ledger) {
    const Ledger::Totals& totals = ledger.totals();
    return {{"queued", totals.queued},   {"returned", totals.returned},
            {"refused", totals.refused}, {"lost", ledger.outstanding()},
            {"doubled", totals.doubled}, {"wrong_port", totals.wrongPort}};
}

json changesJson(const SessionStats& stats) {
    json all = json::array();
    for (const auto& [change, blocked] : stats.changes)
        all.push_back({{"frame", change.frame}, {"change", change.text}, {"blocked_ms", blocked}});
    for (const Change& change : stats.notReached)
        all.push_back({{"frame", change.frame}, {"change", change.text}, {"reached", false}});
    return all;
}

// Adds a sentence with the count if that is not 0, in the singular or the plural.
void note(std::vector<std::string>* out, uint64_t count, const char* one, const char* many) {
    if (count != 0) out->push_back(format("%llu %s", big(count), count == 1 ? one : many));
}

// Returns true if the service does not return its input buffers. A client cannot see these buffers,
// but the component has to allocate another one for each that is not returned. Changes of the
// stream also make it allocate buffers, so a run with changes cannot be judged.
bool keepsInputs(const RunStats& stats) {
    uint64_t frames = 0;
    for (const SessionStats& session : stats.sessions) {
        if (!session.changes.empty()) return false;
        frames += session.frames.in - std::min(session.frames.in, kWarmUpFrames);
    }
    // On a busy machine a frame or two more may be under way late in the clip, so that a few late
    // buffers are normal. Shorter clips are not judged.
    constexpr uint64_t kFrames = 16;
    return stats.lateBuffers && frames >= kFrames && *stats.lateBuffers >= frames;
}

// Returns a sentence for each failure of one session.
std::vector<std::string> failures(const SessionStats& stats) {
    std::vector<std::string> all;
    if (!stats.violation.empty()) all.push_back("--verify: " + stats.violation);
    if (!stats.failure.empty()) all.push_back(stats.failure);
    if (stats.ledger.outstanding() != 0) {
        all.emplace_back("were never returned:");
        for (const auto& [port, slot] : stats.ledger.missing())
            all.back() += format(" %s", qoz::client::bufferName(port, slot).c_str());
    }
    const Ledger::Totals& totals = stats.ledger.totals();
    note(&all, totals.doubled, "buffer was returned that was not outstanding",
         "buffers were returned that were not outstanding");
    note(&all, totals.wrongPort, "buffer was returned on the wrong port",
         "buffers were returned on the wrong port");
    note(&all, stats.frames.refused, "source frame was refused", "source frames were refused");
    note(&all, stats.frames.missing, "source frame never came out", "source frames never came out");
    note(&all, stats.frames.backwards, "frame came out of order", "frames came out of order");
    return all;
}

}  // namespace

std::vector<std::string> failures(const RunStats& stats) {
    std::vector<std::string> all;
    for (size_t i = 0; i < stats.sessions.size(); ++i) {
        std::vector<std::string> own = failures(stats.sessions[i]);
        std::ranges::move(overBudget(stats.budget, stats.sessions[i]), std::back_inserter(own));
        for (const std::string& finding : own) {
            all.push_back(stats.sessions.size() == 1
                              ? finding
                              : format("session %zu: %s", i + 1, finding.c_str()));
        }
    }
    if (stats.truth && stats.truth->frames.empty())
        all.emplace_back("no frame was interpolated that could be compared with one held out");
    if (stats.truth) {
        note(&all, stats.truth->notInterpolated, "frame held out was not interpolated",
             "frames held out were not interpolated");
    }
    all.insert(all.end(), stats.failures.begin(), stats.failures.end());
    for (const std::string& fault : stats.unfiredFaults)
        all.push_back("--fault " + fault + " never fired");
    if (keepsInputs(stats)) {
        all.push_back(
            format("the service keeps its inputs: the component had to make %llu graphic "
                   "buffers after frame %llu",
                   big(*stats.lateBuffers), big(kWarmUpFrames)));
    }
    // A session whose flush has failed stays open after disable(), with its buffers, until the
    // service ends. Its failure has been reported already, so the descriptors are not.
    const bool isAnyLeftOpen =
        std::ranges::any_of(stats.sessions, [](const auto& one) { return !one.failure.empty(); });
    if (!isAnyLeftOpen && stats.descriptorsAfter > stats.descriptorsBefore) {
        all.push_back(format("%d descriptors were open before and %d after",
                             stats.descriptorsBefore, stats.descriptorsAfter));
    }
    return all;
}

std::string summary(const RunStats& stats) {
    std::string text = line("input", stats.input) + line("settings", stats.settings);
    if (!stats.output.empty()) text += line("output", stats.output);
    for (size_t i = 0; i < stats.sessions.size(); ++i) {
        const SessionStats& session = stats.sessions[i];
        if (stats.sessions.size() > 1) text += format("session %zu\n", i + 1);
        text += framesText(session) + changesText(session);
        if (!session.verified.empty()) text += line("verified", session.verified);
    }
    if (stats.truth) text += toText(*stats.truth);
    if (stats.lateBuffers) {
        text += line("memory", format("%llu graphic buffers made after frame %llu",
                                      big(*stats.lateBuffers), big(kWarmUpFrames)));
    }
    text += line("descriptors",
                 format("%d before, %d after", stats.descriptorsBefore, stats.descriptorsAfter));
    if (stats.faultsFired != 0)
        text += line("faults", format("%llu fired", big(stats.faultsFired)));
    return text;
}

json toJson(const SessionStats& stats) {
    return {{"frames", framesJson(stats)},
            {"seconds", stats.seconds},
            {"latency_ms", distribution(stats.frames.latencies)},
            {"blocked_ms", distribution(stats.blocked)},
            {"buffers", buffersJson(stats.ledger)},
            {"changes", changesJson(stats)},
            {"output_size",
             {{"first", sizeJson(stats.firstOutput)}, {"last", sizeJson(stats.lastOutput)}}},
            {"verified", stats.verified.empty() ? json() : json(stats.verified)},
            {"findings", failures(stats)}};
}

json toJson(const RunStats& stats) {
    json sessions = json::array();
    for (const SessionStats& session : stats.sessions)
        sessions.push_back(toJson(session));
    return {
        {"input", stats.input},
        {"settings", stats.settings},
        {"output", stats.output},
        {"sessions", sessions},
        {"buffers_made_after_frame_10", stats.lateBuffers ? json(*stats.lateBuffers) : json()},
        {"descriptors", {{"before", stats.descriptorsBefore}, {"after", stats.descriptorsAfter}}},
        {"faults_fired", stats.faultsFired},
        {"truth", stats.truth ? toJson(*stats.truth) : json()},
        {"findings", failures(stats)}};
}

}  // namespace qozplay
