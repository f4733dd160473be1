// SPDX-License-Identifier: Apache-2.0
// Tests of the trace file and of the log filter.
#include <nlohmann/json.hpp>

#include <algorithm>
#include <map>
#include <set>
#include <utility>

#include "qozplay/cli/LogFilter.h"
#include "qozplay_files.h"

namespace qozplay {
namespace {

struct Slice {
    std::string name;
    double begin, end;
};

// A trace file as a viewer reads it. Inconsistent contents fail the test.
struct Trace {
    explicit Trace(const std::string& text) : file(nlohmann::json::parse(text)) {
        std::map<int, std::vector<Slice>> open;
        std::set<int> named;
        for (const nlohmann::json& event : file["traceEvents"]) {
            const std::string phase = event["ph"];
            const int tid = event["tid"];
            if (phase == "M") {
                if (event["name"] == "thread_name") named.insert(tid);
                EXPECT_NE(event["args"]["name"], "");
                continue;
            }
            EXPECT_TRUE(named.contains(tid)) << event;
            if (phase == "B") open[tid].push_back({event["name"], event["ts"], 0});
            if (phase == "C") counters[event["name"]].push_back(event["args"]["value"]);
            if (phase == "s") starts[event["id"]] = {tid, event["ts"]};
            if (phase == "f") ends[event["id"]] = {tid, event["ts"]};
            if (phase != "E") continue;
            EXPECT_FALSE(open[tid].empty()) << event;
            if (open[tid].empty()) continue;
            slices[tid].push_back(open[tid].back());
            slices[tid].back().end = event["ts"];
            open[tid].pop_back();
        }
        for (const auto& [tid, left] : open)
            EXPECT_TRUE(left.empty()) << left.size() << " slices never end in thread " << tid;
    }

    // Returns the name of the innermost slice around a point; "" if there is none.
    std::string around(const std::pair<int, double>& point) {
        const Slice* inner = nullptr;
        for (const Slice& slice : slices[point.first]) {
            if (slice.begin > point.second || point.second > slice.end) continue;
            if (inner == nullptr || slice.begin > inner->begin) inner = &slice;
        }
        return inner == nullptr ? "" : inner->name;
    }

    nlohmann::json file;
    std::map<int, std::vector<Slice>> slices;
    std::map<int, std::pair<int, double>> starts, ends;  // arrows by id
    std::map<std::string, std::vector<int>> counters;
};

TEST(Trace, LeadsFromEachFrameToAllThatComesBackForIt) {
    const Folder folder;
    ASSERT_EQ(
        run("--scene-size 96x64 --frames 8 --sessions 2 --trace " + folder.file("t.json")).code, 0);
    Trace trace(folder.read("t.json"));
    EXPECT_EQ(trace.starts.size(), 2 * (8 + 8 + 7)) << "sources, their frames, and those between";
    EXPECT_EQ(trace.starts.size(), trace.ends.size());
    for (const auto& [id, end] : trace.ends) {
        EXPECT_EQ(trace.around(trace.starts[id]), "process");
        EXPECT_EQ(trace.around(end), "onBufferDone");
        EXPECT_LT(trace.starts[id].second, end.second);
    }
    std::set<std::string> seen;
    for (const auto& [tid, slices] : trace.slices) {
        for (const Slice& slice : slices)
            seen.insert(slice.name);
    }
    for (const char* section :
         {"queueVppBuffer", "onVppOBD", "queueOBD", "RGBToNV12", "write between"})
        EXPECT_TRUE(seen.contains(section)) << section;
    for (const char* counter :
         {"sources outstanding (qozplay0)", "outputs outstanding (qozplay1)"}) {
        ASSERT_FALSE(trace.counters[counter].empty()) << counter;
        EXPECT_EQ(trace.counters[counter].back(), 0) << "all returned in the end";
    }
    const std::vector<int>& outputs = trace.counters["VPP output port (qozplay0)"];
    EXPECT_GT(*std::max_element(outputs.begin(), outputs.end()), 1);
    EXPECT_TRUE(std::any_of(trace.counters.begin(), trace.counters.end(), [](const auto& counter) {
        return counter.first.starts_with("waiting for delivery (VPPOBDWorker");
    }));
}

TEST(LogFilter, LetsThroughWhatItsWordsSay) {
    struct Row {
        const char* filter;
        const char* shown;      // letters of the priorities that are shown for VppComponent
        const char* elsewhere;  // and for another tag
        bool diagnostics;
    };
    for (const Row& row : {
             Row{"", "VDIWEF", "VDIWEF", true},
             Row{"VppComponent:I *:S", "IWEF", "", true},
             Row{"*:S VppComponent", "VDIWEF", "", true},
             Row{"VppComponent:E", "EF", "VDIWEF", false},
             Row{"*:W", "WEF", "WEF", true},
             Row{"*:F  vppd:V ", "F", "F", false},
             Row{"VppComponent:S VppComponent:W *:S", "WEF", "", true},
             Row{"*:S", "", "", false},
         }) {
        const LogFilter filter = LogFilter::parse(row.filter);
        std::string shown, elsewhere;
        int priority = ANDROID_LOG_VERBOSE;
        for (const char letter : std::string("VDIWEF")) {
            if (filter.shows(priority, "VppComponent")) shown += letter;
            if (filter.shows(priority++, "VppUtils")) elsewhere += letter;
        }
        EXPECT_EQ(shown, row.shown) << row.filter;
        EXPECT_EQ(elsewhere, row.elsewhere) << row.filter;
        EXPECT_EQ(filter.wantsDiagnostics(), row.diagnostics) << row.filter;
    }
    EXPECT_FALSE(LogFilter().wantsDiagnostics());
    for (const char* bad : {":I", "tag:", "tag:i", "tag:II", "tag:X", "*:S a:b:"})
        EXPECT_THROW(LogFilter::parse(bad), BadInput) << bad;
}

}  // namespace
}  // namespace qozplay
