// SPDX-License-Identifier: Apache-2.0
// The command line.
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

// Whether a picture is too thin for a half-size copy, which comes with the motion vectors.
inline bool isThin(Size size) {
    return size.width < 2 || size.height < 2;
}

// What was asked for, checked as far as that can be done without opening a file.
struct Options {
    std::string input;               // empty: the built-in scene
    std::optional<Size> rawSize;     // given: the input is raw RGBA
    std::optional<AVRational> rate;  // of raw input and of the scene
    Size sceneSize{1280, 720};

    SessionPlan plan;  // but for what differs between sessions
    bool motionVectors = true;

    std::string output;
    std::string sheet;
    std::optional<uint64_t> sheetAt;
    std::string trace;
    std::string vectors;
    std::optional<uint32_t> truth;  // given: one frame of so many goes in, the others are held out
    std::vector<Limit> budget;
    std::string stats;
    uint32_t sessions = 1;
    std::vector<qoz::host::Fault> faults;
    std::vector<std::pair<std::string, std::string>> properties;
    LogFilter log;
    std::string service = "inline";  // or "process": in a process of its own

    bool outputIsPipe() const { return output == "-"; }
    bool serviceProcess() const { return service == "process"; }
};

// Throws BadInput. When help or the version was asked for, `answer` has its text and nothing else
// counts.
Options parseOptions(int argc, const char* const argv[], std::string* answer);

}  // namespace qozplay
