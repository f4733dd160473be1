// SPDX-License-Identifier: Apache-2.0
// What is off in a run: anything here makes it a failed one.
#include <algorithm>

#include "qozplay/report/Budget.h"
#include "qozplay/report/Stats.h"

namespace qozplay {
namespace {

void note(std::vector<std::string>* out, uint64_t count, const char* one, const char* many) {
    if (count == 0) return;
    out->push_back(
        format("%llu %s", static_cast<unsigned long long>(count), count == 1 ? one : many));
}

std::string lostBuffers(const std::vector<qoz::client::Ledger::Entry>& missing) {
    std::string text = "were never returned:";
    for (const auto& [port, slot] : missing) {
        text += format(" %s", qoz::client::bufferName(port, slot).c_str());
    }
    return text;
}

// A client does not see the buffers that the service reads, but each one that does not come back
// has the component make another. A change of the stream makes it, too.
bool keepsInputs(const RunStats& stats) {
    uint64_t frames = 0;
    for (const SessionStats& session : stats.sessions) {
        if (!session.changes.empty()) return false;
        frames += session.frames.in - std::min(session.frames.in, kWarmUpFrames);
    }
    // A busy machine has a frame or two more in flight late in a clip.
    constexpr uint64_t kFrames = 16;
    return stats.lateBuffers && frames >= kFrames && stats.lateBuffers->component >= frames;
}

}  // namespace

std::vector<std::string> failures(const SessionStats& stats) {
    std::vector<std::string> all;
    if (!stats.violation.empty()) all.push_back("--verify: " + stats.violation);
    if (!stats.failure.empty()) all.push_back(stats.failure);
    if (stats.ledger.outstanding() != 0) all.push_back(lostBuffers(stats.ledger.missing()));
    const qoz::client::Ledger::Totals& totals = stats.ledger.totals();
    note(&all, totals.doubled, "buffer was returned that was not outstanding",
         "buffers were returned that were not outstanding");
    note(&all, totals.wrongPort, "buffer was returned on the wrong port",
         "buffers was returned on the wrong port");
    note(&all, stats.frames.refused, "source frame was refused", "source frames were refused");
    note(&all, stats.frames.missing, "source frame never came out", "source frames never came out");
    note(&all, stats.frames.backwards, "frame came out of order", "frames came out of order");
    return all;
}

std::vector<std::string> failures(const RunStats& stats) {
    std::vector<std::string> all;
    for (size_t i = 0; i < stats.sessions.size(); ++i) {
        std::vector<std::string> own = failures(stats.sessions[i]);
        const std::vector<std::string> over = overBudget(stats.budget, stats.sessions[i]);
        own.insert(own.end(), over.begin(), over.end());
        for (const std::string& finding : own) {
            all.push_back(stats.sessions.size() == 1
                              ? finding
                              : format("session %zu: %s", i + 1, finding.c_str()));
        }
    }
    if (stats.truth && stats.truth->frames.empty()) {
        all.emplace_back("no frame was interpolated that could be compared with one held out");
    }
    if (stats.truth) {
        note(&all, stats.truth->notInterpolated, "frame held out was not interpolated",
             "frames held out were not interpolated");
    }
    all.insert(all.end(), stats.failures.begin(), stats.failures.end());
    for (const std::string& fault : stats.unfiredFaults) {
        all.push_back("--fault " + fault + " never fired");
    }
    if (keepsInputs(stats)) {
        all.push_back(
            format("the service keeps its inputs: the component had to make %llu graphic "
                   "buffers after frame %llu",
                   big(stats.lateBuffers->component), big(kWarmUpFrames)));
    }
    // A session whose flush has failed stays open after disable(), with what it holds, until the
    // service ends: its failure is the cause, and has been named.
    const bool isAnyLeftOpen =
        std::ranges::any_of(stats.sessions, [](const auto& one) { return !one.failure.empty(); });
    if (!isAnyLeftOpen && stats.descriptorsAfter > stats.descriptorsBefore) {
        all.push_back(format("%d descriptors were open before and %d after",
                             stats.descriptorsBefore, stats.descriptorsAfter));
    }
    return all;
}

}  // namespace qozplay
