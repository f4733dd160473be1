// SPDX-License-Identifier: Apache-2.0
#include "qozplay/report/Stats.h"

#include <nlohmann/json.hpp>

#include <algorithm>
#include <cmath>

namespace qozplay {
namespace {

using nlohmann::json;

// 0 for no time.
double perSecond(uint64_t count, double seconds) {
    return seconds > 0 ? static_cast<double>(count) / seconds : 0;
}

std::string framesText(const SessionStats& stats) {
    const FrameTracker::Tally& frames = stats.frames;
    std::string text = format("frames       %llu in, %llu out: %llu source and %llu interpolated\n",
                              big(frames.in), big(frames.source + frames.interpolated),
                              big(frames.source), big(frames.interpolated));
    if (frames.flushed != 0) {
        text += format("             %llu cleared away by a flush\n", big(frames.flushed));
    }
    return text;
}

std::string speedText(const SessionStats& stats) {
    const FrameTracker::Tally& frames = stats.frames;
    const double s = stats.seconds;
    std::string text =
        format("speed        %.1f frames in, %.1f out, %.1f interpolated a second, for %.2f s\n",
               perSecond(frames.in, s), perSecond(frames.source + frames.interpolated, s),
               perSecond(frames.interpolated, s), s);
    text +=
        format("latency      p50 %.1f  p90 %.1f  p95 %.1f  p99 %.1f  max %.1f ms from in to out\n",
               percentile(frames.latencies, 0.5), percentile(frames.latencies, 0.9),
               percentile(frames.latencies, 0.95), percentile(frames.latencies, 0.99),
               percentile(frames.latencies, 1));
    text += format("blocked      p50 %.2f  p99 %.2f  max %.2f ms for each source frame\n",
                   percentile(stats.blocked, 0.5), percentile(stats.blocked, 0.99),
                   percentile(stats.blocked, 1));
    return text;
}

std::string buffersText(const SessionStats& stats) {
    const Ledger::Totals& totals = stats.ledger.totals();
    return format("buffers      %llu queued, %llu returned, %zu lost, %llu refused\n",
                  big(totals.queued), big(totals.returned), stats.ledger.outstanding(),
                  big(totals.refused));
}

std::string changesText(const SessionStats& stats) {
    std::string text;
    for (const ChangeNote& note : stats.changes) {
        text += format("change       frame %llu: %s, blocked %.1f ms\n", big(note.change.frame),
                       note.change.text.c_str(), note.blocked);
    }
    for (const Change& change : stats.notReached) {
        text += format("change       frame %llu: %s, not reached\n", big(change.frame),
                       change.text.c_str());
    }
    if (stats.firstOutput != stats.lastOutput) {
        text += format("size         %s at first, %s at last; written as %s\n",
                       toText(stats.firstOutput).c_str(), toText(stats.lastOutput).c_str(),
                       toText(stats.firstOutput).c_str());
    }
    return text;
}

std::string hostText(const RunStats& stats) {
    std::string text;
    if (stats.lateBuffers) {
        text += format("memory       %llu graphic buffers made after frame 10",
                       big(stats.lateBuffers->component));
        if (stats.lateBuffers->player != 0) {
            text += format(", and %llu by the player", big(stats.lateBuffers->player));
        }
        text += "\n";
    }
    text += format("descriptors  %d before, %d after\n", stats.descriptorsBefore,
                   stats.descriptorsAfter);
    if (stats.faultsFired != 0) text += format("faults       %llu fired\n", big(stats.faultsFired));
    return text;
}

json distribution(const std::vector<double>& values) {
    if (values.empty()) return {{"p50", {}}, {"p90", {}}, {"p95", {}}, {"p99", {}}, {"max", {}}};
    return {{"p50", percentile(values, 0.5)},
            {"p90", percentile(values, 0.9)},
            {"p95", percentile(values, 0.95)},
            {"p99", percentile(values, 0.99)},
            {"max", percentile(values, 1)}};
}

json sizeJson(Size size) {
    return {{"width", size.width}, {"height", size.height}};
}

json framesJson(const SessionStats& stats) {
    const FrameTracker::Tally& frames = stats.frames;
    return {{"in", frames.in},
            {"out", frames.source + frames.interpolated},
            {"source", frames.source},
            {"interpolated", frames.interpolated},
            {"refused", frames.refused},
            {"flushed", frames.flushed},
            {"missing", frames.missing},
            {"out_of_order", frames.backwards},
            {"out_per_second", perSecond(frames.source + frames.interpolated, stats.seconds)},
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
    for (const ChangeNote& note : stats.changes) {
        all.push_back({{"frame", note.change.frame},
                       {"change", note.change.text},
                       {"blocked_ms", note.blocked}});
    }
    for (const Change& change : stats.notReached) {
        all.push_back({{"frame", change.frame}, {"change", change.text}, {"reached", false}});
    }
    return all;
}

}  // namespace

double percentile(std::vector<double> values, double share) {
    if (values.empty()) return 0;
    const auto rank = std::ceil(share * static_cast<double>(values.size()));
    const size_t index = rank < 1 ? 0 : static_cast<size_t>(rank) - 1;
    std::nth_element(values.begin(), values.begin() + static_cast<std::ptrdiff_t>(index),
                     values.end());
    return values[index];
}

std::string summary(const RunStats& stats) {
    std::string text = "input        " + stats.input + "\n";
    text += "settings     " + stats.settings + "\n";
    if (!stats.output.empty()) text += "output       " + stats.output + "\n";
    for (size_t i = 0; i < stats.sessions.size(); ++i) {
        const SessionStats& session = stats.sessions[i];
        if (stats.sessions.size() > 1) text += format("session %zu\n", i + 1);
        text +=
            framesText(session) + speedText(session) + buffersText(session) + changesText(session);
        if (!session.verified.empty()) text += "verified     " + session.verified + "\n";
    }
    if (stats.truth) text += toText(*stats.truth);
    return text + hostText(stats);
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
    for (const SessionStats& session : stats.sessions) {
        sessions.push_back(toJson(session));
    }
    json late;  // null for a clip that was too short
    if (stats.lateBuffers) {
        late = {{"component", stats.lateBuffers->component}, {"player", stats.lateBuffers->player}};
    }
    return {
        {"input", stats.input},
        {"settings", stats.settings},
        {"output", stats.output},
        {"sessions", sessions},
        {"buffers_made_after_frame_10", late},
        {"descriptors", {{"before", stats.descriptorsBefore}, {"after", stats.descriptorsAfter}}},
        {"faults_fired", stats.faultsFired},
        {"truth", stats.truth ? toJson(*stats.truth) : json()},
        {"findings", failures(stats)}};
}

}  // namespace qozplay
