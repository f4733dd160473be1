// SPDX-License-Identifier: Apache-2.0
// The command line of the player.
#pragma once

#include <host/control.h>

#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "qozplay/cli/LogFilter.h"
#include "qozplay/report/Stats.h"
#include "qozplay/stream/ChangeSchedule.h"

namespace qozplay {

// Returns true if the picture is too small for the half-size copy that motion vectors require.
inline bool isThin(Size size) {
    return size.width < 2 || size.height < 2;
}

// The options of a run, checked as far as possible without opening a file. The player owns them;
// they do not change while the sessions run.
struct Options {
    std::string input;               // empty for the built-in scene
    std::optional<Size> rawSize;     // set if the input is raw RGBA
    std::optional<AVRational> rate;  // of raw input and of the scene
    Size sceneSize{1280, 720};

    SessionPlan plan;  // the name and the diagnostics are set for each session
    bool motionVectors = true;

    std::string output;
    std::string sheet;
    std::optional<uint64_t> sheetAt;
    std::string trace;
    std::string vectors;
    std::optional<uint32_t> truth;  // N: every Nth frame is sent, the others are held out
    std::vector<Limit> budget;
    std::string stats;
    uint32_t sessions = 1;
    std::vector<qoz::host::Fault> faults;
    std::vector<std::pair<std::string, std::string>> properties;
    LogFilter log;
    std::string service = "inline";  // or "process": the service runs in its own process

    bool outputIsPipe() const { return output == "-"; }
    bool serviceProcess() const { return service == "process"; }
};

// Parses the command line. Throws BadInput. If help or the version was requested, `answer` receives
// its text, and the returned options must not be used.
Options parseOptions(int argc, const char* const argv[], std::string* answer);

}  // namespace qozplay
