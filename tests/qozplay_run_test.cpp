// Whole runs of the player: exit codes, messages, and what comes out.
#include "Player.h"
#include "qozplay_files.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <nlohmann/json.hpp>

#include <algorithm>
#include <sstream>
#include <vector>

namespace qozplay {
namespace {

using testing::HasSubstr;

struct Outcome {
    int code;
    std::string out;
    std::string err;
};

Outcome run(std::vector<const char*> args) {
    args.insert(args.begin(), "qozplay");
    std::ostringstream out;
    std::ostringstream err;
    Console console(out, err, false);
    const int code = play(static_cast<int>(args.size()), args.data(), console);
    return {code, out.str(), err.str()};
}

TEST(Player, EndsWithTwoAndASentenceOnBadInput) {
    const Folder folder;
    const std::string garbage = folder.write("garbage.y4m", "no clip\n");
    const std::string missing = folder.file("missing.y4m");
    const std::string nowhere = folder.file("no/such/folder.y4m");
    const struct {
        std::vector<const char*> args;
        const char* message;
    } cases[] = {
        {{"-i", missing.c_str()}, "cannot read"},
        {{"-i", garbage.c_str()}, "is not a y4m clip"},
        {{"-i", garbage.c_str(), "--size", "0x4"}, "size of 0"},
        {{"-i", garbage.c_str(), "--rate", "30"}, "has its own"},
        {{"--size", "4x4"}, "raw input"},
        {{"--scene-size", "8x8"}, "below 32"},
        {{"--frames", "0"}, "nothing to do"},
        {{"--at", "3"}, "a change looks like"},
        {{"--interp", "4"}, "more than 3"},
        {{"--upscale", "3"}, "none of 1, 1.5 and 2"},
        {{"--mv", "maybe"}, "neither on nor off"},
        {{"--ais-only", "--interp", "1"}, "--ais-only"},
        {{"--ais-only", "--at", "3:upscale=2"}, "--ais-only"},
        {{"--fault", "nonsense"}, "--fault nonsense"},
        {{"--prop", "novalue"}, "NAME=VALUE"},
        {{"--sessions", "2", "-i", "-"}, "only once"},
        {{"--no-such-option"}, "--no-such-option"},
        {{"stray"}, "stray"},
        {{"-o", nowhere.c_str()}, "cannot write"},
        {{"-i", garbage.c_str(), "--size", "1x2", "-o", garbage.c_str()}, "overwritten"},
        {{"--stats", nowhere.c_str()}, "cannot write"},
    };
    for (const auto& c : cases) {
        const Outcome outcome = run(c.args);
        EXPECT_EQ(outcome.code, 2) << c.message;
        EXPECT_THAT(outcome.err, testing::StartsWith("qozplay: ")) << c.message;
        EXPECT_THAT(outcome.err, HasSubstr(c.message));
        EXPECT_EQ(std::count(outcome.err.begin(), outcome.err.end(), '\n'), 1) << outcome.err;
        EXPECT_EQ(outcome.out, "") << c.message;
    }
}

TEST(Player, KeepsTheFramesBeforeACutInTheLastOne) {
    const Folder folder;
    const Size size{64, 48};
    std::string clip = "YUV4MPEG2 W64 H48 F30:1\n";
    for (const char luma : {'0', '2', '4', '6'}) {
        clip += "FRAME\n" + grey(size, luma);
    }
    clip.resize(clip.size() - 1);
    const std::string in = folder.write("cut.y4m", clip);
    const std::string out = folder.file("out.y4m");
    const Outcome outcome = run({"-i", in.c_str(), "-o", out.c_str(), "--interp", "0"});
    EXPECT_EQ(outcome.code, 2);
    EXPECT_THAT(outcome.err, HasSubstr("frame 3 is cut short, 4607 of its 4608 bytes"));
    const std::string written = folder.read("out.y4m");
    const size_t header = written.find('\n') + 1;
    EXPECT_EQ(written.size(), header + 3 * (6 + i420Bytes(size)));
    EXPECT_NEAR(written[header + 6 + 1000], '0', 2);
    EXPECT_NEAR(written[header + 2 * (6 + i420Bytes(size)) + 6 + 1000], '4', 2);
}

TEST(Player, MakesFramesAndAccountsForAll) {
    const Folder folder;
    const std::string out = folder.file("out.y4m");
    const std::string sheet = folder.file("sheet.png");
    const std::string trace = folder.file("trace.json");
    const std::string stats = folder.file("stats.json");
    const Outcome outcome = run({"--scene-size", "96x64", "--frames", "16", "--interp", "2",
                                 "--upscale", "2", "-o", out.c_str(), "--sheet", sheet.c_str(),
                                 "--trace", trace.c_str(), "--stats", stats.c_str()});
    EXPECT_EQ(outcome.code, 0) << outcome.err;
    const nlohmann::json all = nlohmann::json::parse(folder.read("stats.json"));
    const nlohmann::json& session = all["sessions"][0];
    EXPECT_EQ(session["frames"]["in"], 16);
    EXPECT_EQ(session["frames"]["own"], 16);
    EXPECT_EQ(session["frames"]["made"], 15 * 2);
    EXPECT_EQ(session["buffers"]["lost"], 0);
    EXPECT_EQ(session["buffers"]["lent"], session["buffers"]["returned"]);
    EXPECT_EQ(session["output_size"]["last"]["width"], 192);
    EXPECT_EQ(all["descriptors"]["before"], all["descriptors"]["after"]);
    EXPECT_TRUE(all["findings"].empty());
    const std::string written = folder.read("out.y4m");
    EXPECT_EQ(written.size(), written.find('\n') + 1 + 46 * (6 + i420Bytes({192, 128})));
    EXPECT_THAT(written, HasSubstr("W192 H128 F90:1"));
    EXPECT_THAT(folder.read("sheet.png").substr(1, 3), "PNG");
    EXPECT_THAT(folder.read("trace.json"), HasSubstr("queueVppBuffer"));
}

TEST(Player, FollowsChangesWhileFramesFlow) {
    const Folder folder;
    const std::string stats = folder.file("stats.json");
    const Outcome outcome = run({"--scene-size", "96x64", "--frames", "24", "--at", "4:interp=3",
                                 "--at", "8:upscale=1.5", "--at", "12:size=64x48", "--at",
                                 "16:flush", "--at", "99:flush", "--stats", stats.c_str()});
    EXPECT_EQ(outcome.code, 0) << outcome.err;
    const nlohmann::json session = nlohmann::json::parse(folder.read("stats.json"))["sessions"][0];
    const nlohmann::json& frames = session["frames"];
    EXPECT_EQ(frames["in"], 24);
    EXPECT_EQ(frames["own"].get<int>() + frames["flushed"].get<int>(), 24);
    EXPECT_EQ(frames["missing"], 0);
    EXPECT_GT(frames["made"], 40);  // with one frame in each interval it would be 23
    EXPECT_EQ(session["output_size"]["last"]["width"], 96);
    EXPECT_EQ(session["output_size"]["last"]["height"], 72);
    EXPECT_EQ(session["buffers"]["lent"], session["buffers"]["returned"]);
    EXPECT_EQ(session["changes"].size(), 5U);
    EXPECT_THAT(outcome.out, HasSubstr("frame 99: flush, not reached"));
}

TEST(Player, EndsWithOneWhenASessionFails) {
    const struct {
        const char* fault;
        const char* message;
    } cases[] = {
        {"getNewVppSession=1", "the session could not be enabled"},
        {"open=1", "the session did not start"},
        {"RGBToNV12=1@4", "1 source frame was refused"},
        {"outputBufferDone=drop@9", "never came back: output"},
    };
    for (const auto& c : cases) {
        const Outcome outcome =
            run({"--scene-size", "64x48", "--frames", "12", "--fault", c.fault});
        EXPECT_EQ(outcome.code, 1) << c.fault;
        EXPECT_THAT(outcome.err, HasSubstr(c.message)) << c.fault;
    }
    // Nothing of it stays armed.
    EXPECT_EQ(run({"--scene-size", "64x48", "--frames", "12"}).code, 0);
}

TEST(Player, RunsSessionsSideBySide) {
    const Folder folder;
    const std::string stats = folder.file("stats.json");
    const Outcome outcome = run(
        {"--scene-size", "64x48", "--frames", "20", "--sessions", "3", "--stats", stats.c_str()});
    EXPECT_EQ(outcome.code, 0) << outcome.err;
    const nlohmann::json sessions = nlohmann::json::parse(folder.read("stats.json"))["sessions"];
    ASSERT_EQ(sessions.size(), 3U);
    for (const nlohmann::json& session : sessions) {
        EXPECT_EQ(session["frames"]["made"], 19);
        EXPECT_EQ(session["buffers"]["lost"], 0);
    }
}

}  // namespace
}  // namespace qozplay
