// SPDX-License-Identifier: Apache-2.0
// The figures of a run, and their output as text and as JSON.
#pragma once

#include <nlohmann/json_fwd.hpp>

#include <optional>
#include <string>
#include <vector>

#include "client/Ledger.h"
#include "qozplay/report/ReferenceScore.h"
#include "qozplay/stream/ChangeSchedule.h"
#include "qozplay/stream/FrameTracker.h"

namespace qozplay {

using qoz::client::Ledger;

// A change of the plan that has been carried out.
struct ChangeNote {
    Change change;
    double blocked;  // duration of the call that made the change, milliseconds
};

// The figures of one session. The session fills them in on its thread and returns them.
struct SessionStats {
    FrameTracker::Tally frames;
    std::vector<double> blocked;  // duration of process() for each source frame, milliseconds
    Ledger ledger;
    std::vector<ChangeNote> changes;
    std::vector<Change> notReached;  // changes at frames beyond the end of the clip
    double seconds = 0;              // from the first frame sent to the last one received
    Size firstOutput;
    Size lastOutput;
    std::string failure;    // the first failure; empty if there was none
    std::string violation;  // the first violation that --verify found; empty if there was none
    std::string verified;   // the checks that --verify made; empty without it or after a violation
    bool badInput = false;  // true if the failure is due to the input
};

// The number of source frames after which the component of a session has allocated all buffers that
// it needs.
constexpr uint64_t kWarmUpFrames = 10;

// A bound of --budget for one figure. The value of a time is in milliseconds.
struct Limit {
    std::string figure;
    double value;
};

// The figures of the whole run.
struct RunStats {
    std::string input;
    std::string settings;
    std::string output;
    std::vector<SessionStats> sessions;
    // Graphic buffers that the components allocated after every session had sent kWarmUpFrames
    // source frames; nullopt if a session sent fewer.
    std::optional<uint64_t> lateBuffers;
    int descriptorsBefore = 0;  // open descriptors before the sessions ran
    int descriptorsAfter = 0;   // and after they had ended
    uint64_t faultsFired = 0;
    std::vector<std::string> unfiredFaults;  // as texts for --fault
    std::optional<Scores> truth;             // only with --truth
    std::vector<Limit> budget;
    std::vector<std::string> failures;  // failures outside the sessions
};

// Parses "p95=8ms", "lost=0" or "interpolated=100". Throws BadInput.
Limit parseLimit(const std::string& text);

// Returns a sentence for each figure that exceeds its bound, and for each that was not measured.
std::vector<std::string> overBudget(const std::vector<Limit>& budget, const SessionStats& stats);

// Returns a sentence for each failure of the run; without any, the run has succeeded.
std::vector<std::string> failures(const RunStats& stats);

// Returns the text that the player prints at the end of a run.
std::string summary(const RunStats& stats);

// Returns the figures for --stats. A figure without any measurement is null.
nlohmann::json toJson(const SessionStats& stats);
nlohmann::json toJson(const RunStats& stats);

}  // namespace qozplay
