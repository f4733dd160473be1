// SPDX-License-Identifier: Apache-2.0
// The figures of a run, for people and for programs.
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

// A change that has taken place.
struct ChangeNote {
    Change change;
    double blocked;  // milliseconds that the client could not go on
};

// The figures of one session, which fills them in before it ends.
struct SessionStats {
    FrameTracker::Tally frames;
    std::vector<double> blocked;  // milliseconds in process(), of each source frame
    Ledger ledger;
    std::vector<ChangeNote> changes;
    std::vector<Change> notReached;
    double seconds = 0;  // from the first frame's going in to the last one's coming out
    Size firstOutput;
    Size lastOutput;
    std::string failure;    // empty: none
    std::string violation;  // the first that --verify found; empty: none
    std::string verified;   // what it checked; empty: nothing, or it found one
    bool badInput = false;  // the failure is the input's
};

// Source frames of a session after which the component has all the buffers that it needs.
constexpr uint64_t kWarmUpFrames = 10;

// A bound for one of the figures, milliseconds where it is a time.
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
    // Graphic buffers that the components made once every session had sent its first ten frames;
    // none: the clip was too short.
    std::optional<uint64_t> lateBuffers;
    int descriptorsBefore = 0;  // open before the first session was enabled ...
    int descriptorsAfter = 0;   // ... and after the last one was disabled
    uint64_t faultsFired = 0;
    std::vector<std::string> unfiredFaults;  // as given
    std::optional<Scores> truth;             // none: nobody asked
    std::vector<Limit> budget;
    std::vector<std::string> failures;  // beside those of the sessions
};

// "p95=8ms", "lost=0", "interpolated=100". Throws BadInput.
Limit parseLimit(const std::string& text);

// One sentence for each figure beyond its bound.
std::vector<std::string> overBudget(const std::vector<Limit>& budget, const SessionStats& stats);

// One sentence for each thing that is off; any makes the run a failed one.
std::vector<std::string> failures(const RunStats& stats);

std::string summary(const RunStats& stats);
nlohmann::json toJson(const SessionStats& stats);  // what nothing was measured for is null
nlohmann::json toJson(const RunStats& stats);

}  // namespace qozplay
