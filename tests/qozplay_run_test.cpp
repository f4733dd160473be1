// SPDX-License-Identifier: Apache-2.0
// Tests of whole runs of the player: exit codes, messages and output.
#include <nlohmann/json.hpp>

#include <algorithm>
#include <array>
#include <vector>

#include "qozplay_files.h"

namespace qozplay {
namespace {

TEST(Player, EndsWithTwoAndASentenceOnBadInput) {
    const Folder folder;
    const std::string garbage = folder.write("garbage.y4m", "no clip\n");
    const std::pair<std::string, const char*> cases[] = {
        {"-i " + folder.file("missing.y4m"), "cannot read"},
        {"--size 0x4 -i " + garbage, "a size looks like"},
        {"--rate 30 -i " + garbage, "has its own"},
        {"--size 1x2 -i " + garbage + " -o " + garbage, "overwritten"},
        {"-o " + folder.file("no/such/folder.y4m"), "cannot write"},
        {"--stats " + folder.file("no/such/folder.json"), "cannot write"},
        {"--size 4x4", "--size requires"},
        {"--scene-size 8x8", "below 32"},
        {"--frames 0", "not in range"},
        {"--at 3", "--at 3: a change looks like"},
        {"--interp 4", "not in range 0 to 3"},
        {"--mv maybe", "maybe not in"},
        {"--ais-only --interp 1", "--ais-only"},
        {"--ais-only --at 3:upscale=2", "--ais-only"},
        {"--truth 1", "not in range 2 to 4"},
        {"--truth 2 --interp 1", "excludes --truth"},
        {"--truth 2 -i " + folder.write("small.y4m", "YUV4MPEG2 W8 H8\n"), "below 16"},
        {"--vectors x.png --mv off", "--vectors needs"},
        {"--budget p95=8,zoom=1", "--budget zoom=1: zoom is none of p50"},
        {"--fault nonsense", "--fault nonsense"},
        {"--fault queueBufs=1", "no operation is called queueBufs"},
        {"--prop vendor.qoz.log.msg=xyz --frames 1", "is not a number"},
        {"-o " + folder.file("x.avi"), "the ending is none of"},
        {"--stats " + folder.file("x") + " --trace " + folder.file("./x"), "would be overwritten"},
        {"--stats qozplay-no-such-file --sheet ./qozplay-no-such-file", "would be overwritten"},
        {"--prop novalue", "NAME=VALUE"},
        {"--log VppComponent:X", "V D I W E F S"},
        {"--sessions 2 -i -", "only once"},
        {"--sessions 2 -i /dev/null", "only once"},
        {"--at 3:size=8x1", "no side is below 2"},
        {"--rate 1000000", "at most 100000"},
        {"--stats ''", "names no file"},
        {"--no-such-option", "--no-such-option"},
        {"clip.mp4", "a clip is named by -i"},
    };
    for (const auto& [args, message] : cases) {
        const Outcome outcome = run(args);
        EXPECT_EQ(outcome.code, 2) << message;
        EXPECT_THAT(outcome.err, testing::StartsWith("qozplay: "));
        EXPECT_THAT(outcome.err, HasSubstr(message));
        EXPECT_EQ(std::count(outcome.err.begin(), outcome.err.end(), '\n'), 1) << outcome.err;
        EXPECT_EQ(outcome.out, "") << message;
    }
}

TEST(Player, NeedsWhatItWritesToAndNothingElse) {
    std::ofstream full("/dev/full");
    std::ostringstream err;
    EXPECT_EQ(run("--help", StopRequest(), full, err), 1);
    EXPECT_THAT(err.str(), HasSubstr("cannot write to standard output"));
    const char* before = getenv("TMPDIR");
    const std::string folder = before != nullptr ? before : "";
    setenv("TMPDIR", "/no/such/folder", 1);
    EXPECT_EQ(run("--scene-size 64x48 --frames 2").code, 0) << "it keeps nothing there";
    EXPECT_THAT(run("--scene-size 64x48 --frames 2 --vectors x.png").err, HasSubstr("TMPDIR"));
    before != nullptr ? setenv("TMPDIR", folder.c_str(), 1) : unsetenv("TMPDIR");
}

TEST(Player, KeepsTheFramesBeforeACutInTheLastOne) {
    const Folder folder;
    const Size size{64, 48};
    std::string clip = "YUV4MPEG2 W64 H48 F30:1\n";
    for (const char luma : {'0', '2', '4', '6'})
        clip += "FRAME\n" + grey(size, luma);
    clip.pop_back();
    const Outcome outcome =
        run("--interp 0 -i " + folder.write("cut.y4m", clip) + " -o " + folder.file("out.y4m"));
    EXPECT_EQ(outcome.code, 2);
    EXPECT_THAT(outcome.err, HasSubstr("frame 3 is cut short"));
    const std::string written = folder.read("out.y4m");
    const size_t header = written.find('\n') + 1;
    EXPECT_EQ(written.size(), header + 3 * (6 + i420Bytes(size)));
    EXPECT_NEAR(written[header + 6 + 1000], '0', 2);
    EXPECT_NEAR(written[header + 2 * (6 + i420Bytes(size)) + 6 + 1000], '4', 2);
}

TEST(Player, MakesFramesOfSessionsSideBySideAndAccountsForAll) {
    const Folder folder;
    const Outcome outcome =
        run("--scene-size 96x64 --frames 16 --interp 2 --upscale 2 --sessions 3 -o " +
            folder.file("out.y4m") + " --sheet " + folder.file("sheet.png") + " --stats " +
            folder.file("stats.json") + " --verify --budget lost=0,interpolated=30 --vectors " +
            folder.file("vectors.png"));
    EXPECT_EQ(outcome.code, 0) << outcome.err;
    const nlohmann::json all = nlohmann::json::parse(folder.read("stats.json"));
    EXPECT_EQ(all["sessions"].size(), 3U);
    for (const nlohmann::json& session : all["sessions"]) {
        EXPECT_EQ(session["frames"]["source"], 16);
        EXPECT_EQ(session["frames"]["interpolated"], 15 * 2);
        EXPECT_EQ(session["buffers"]["lost"], 0);
        EXPECT_EQ(session["buffers"]["queued"], session["buffers"]["returned"]);
        EXPECT_EQ(session["output_size"]["last"]["width"], 192);
        EXPECT_THAT(session["verified"].get<std::string>(), HasSubstr("16 source frames once"));
    }
    EXPECT_EQ(all["descriptors"]["before"], all["descriptors"]["after"]);
    EXPECT_TRUE(all["findings"].empty());
    const std::string written = folder.read("out.y4m");
    EXPECT_EQ(written.size(), written.find('\n') + 1 + 46 * (6 + i420Bytes({192, 128})));
    EXPECT_THAT(written, HasSubstr("W192 H128 F90:1"));
    for (const char* picture : {"sheet.png", "vectors.png"})
        EXPECT_THAT(folder.read(picture).substr(1, 3), "PNG") << picture;
}

// A clip of saturated colours passes through the player several times, with both matrices. Each
// pass converts it to RGB and back.
TEST(Player, KeepsColoursThroughAnyNumberOfPasses) {
    const Folder folder;
    for (const Size size : {Size{96, 64}, Size{96, 720}}) {
        // Luma and chroma of red, green, blue, yellow, cyan and violet, at 253 of 255.
        using Patch = std::array<int, 3>;
        const std::array<Patch, 6> patches = size.height < 720
                                                 ? std::array<Patch, 6>{{{81, 91, 239},
                                                                         {144, 54, 35},
                                                                         {41, 239, 110},
                                                                         {209, 17, 146},
                                                                         {168, 165, 17},
                                                                         {77, 186, 157}}}
                                                 : std::array<Patch, 6>{{{62, 103, 239},
                                                                         {171, 43, 27},
                                                                         {32, 239, 118},
                                                                         {218, 17, 138},
                                                                         {187, 153, 17},
                                                                         {60, 186, 151}}};
        std::string frame = grey(size, 0);
        const size_t pixels = size_t{size.width} * size.height;
        for (size_t i = 0; i < frame.size(); ++i) {
            const size_t plane = i < pixels ? 0 : i < pixels + pixels / 4 ? 1 : 2;
            const size_t wide = plane == 0 ? size.width : size.width / 2;
            frame[i] = static_cast<char>(patches[i % wide * 6 / wide][plane]);
        }
        std::string clip =
            format("YUV4MPEG2 W%u H%u F30:1\nFRAME\n", size.width, size.height) + frame;
        std::string first;
        for (int pass = 0; pass < 10; ++pass) {
            folder.write("in.y4m", clip);
            const Outcome outcome =
                run("--interp 0 -i " + folder.file("in.y4m") + " -o " + folder.file("out.y4m"));
            ASSERT_EQ(outcome.code, 0) << outcome.err;
            clip = folder.read("out.y4m");
            const std::string picture = clip.substr(clip.size() - frame.size());
            if (pass == 0) first = picture;
            EXPECT_EQ(picture, first) << "pass " << pass << " at " << size.height;
        }
        for (size_t i = 0; i < frame.size(); ++i) {
            const int was = static_cast<uint8_t>(frame[i]), is = static_cast<uint8_t>(first[i]);
            ASSERT_NEAR(is, was, 1) << "byte " << i << " at " << size.height;
        }
    }
}

// A picture whose hard edges do not coincide with the cells of the verifier's grid: rows 22 and 23
// of 180 share a chroma row, which lies on the edge of a cell.
TEST(Player, VerifiesHardEdgesOfAnySizeAndScale) {
    const Folder folder;
    const Size size{320, 180};
    std::string frame = grey(size, 126);
    for (size_t i = size_t{size.width} * size.height; i < frame.size(); ++i) {
        const size_t row = i / (size.width / 2);
        frame[i] = static_cast<char>(row % 11 < 6 || i % 37 < 9 ? 40 : 216);
    }
    const std::string clip =
        folder.write("clip.y4m", "YUV4MPEG2 W320 H180 F30:1\nFRAME\n" + frame + "FRAME\n" + frame);
    for (const char* scale :
         {"", "--upscale 1.5", "--prop vendor.qoz.maxw=150 --prop vendor.qoz.maxh=90"}) {
        const Outcome outcome = run("--verify -i " + clip + " " + scale);
        EXPECT_EQ(outcome.code, 0) << scale << outcome.err;
    }
}

TEST(Player, FollowsChangesWhileFramesFlow) {
    const Folder folder;
    const Outcome outcome =
        run("--scene-size 96x64 --frames 24 --at 4:interp=3 --at 8:upscale=1.5 --at 12:size=64x48 "
            "--at 16:flush --at 99:flush --verify --stats " +
            folder.file("stats.json"));
    EXPECT_EQ(outcome.code, 0) << outcome.err;
    const nlohmann::json session = nlohmann::json::parse(folder.read("stats.json"))["sessions"][0];
    const nlohmann::json& frames = session["frames"];
    EXPECT_EQ(frames["source"].get<int>() + frames["flushed"].get<int>(), 24);
    EXPECT_GT(frames["interpolated"], 40);  // one frame in each interval would make 23
    EXPECT_EQ(session["output_size"]["last"], (nlohmann::json{{"width", 96}, {"height", 72}}));
    EXPECT_EQ(session["buffers"]["queued"], session["buffers"]["returned"]);
    EXPECT_EQ(session["changes"].size(), 5U);
    EXPECT_THAT(session["verified"].get<std::string>(),
                HasSubstr("none in 1 (flush), none in 1 (ratio change), none in 1 (size change)"));
    EXPECT_THAT(outcome.out, HasSubstr("frame 99: flush, not reached"));
}

// Each frame is 2 levels brighter than the previous one.
TEST(Player, ScoresWhatIsMadeInPlaceOfFramesHeldOut) {
    const Folder folder;
    std::string clip = "YUV4MPEG2 W64 H48 F30:1\n";
    for (const char luma : {50, 52, 54, 56, 58, 60, 62, 64, 66, 68})
        clip += "FRAME\n" + grey({64, 48}, luma);
    const Outcome outcome = run("--truth 4 --verify -i " + folder.write("clip.y4m", clip) +
                                " --stats " + folder.file("stats.json"));
    EXPECT_EQ(outcome.code, 0) << outcome.err;
    const nlohmann::json truth = nlohmann::json::parse(folder.read("stats.json"))["truth"];
    const double repeated[] = {42.11, 36.09, 32.57};  // dB, for 2, 4 and 6 levels
    ASSERT_EQ(truth["frames"].size(), 6U);
    for (size_t i = 0; i < 6; ++i) {
        const nlohmann::json& frame = truth["frames"][i];
        EXPECT_EQ(frame["frame"], 1 + i + i / 3);
        EXPECT_NEAR(frame["repeated"]["psnr"], repeated[i % 3], 0.01);
        EXPECT_GE(frame["blended"]["psnr"], 48);  // allows one level for rounding
        EXPECT_GE(frame["interpolated"]["psnr"], 48);
    }
    EXPECT_NEAR(truth["repeated"]["mean"]["psnr"], 36.92, 0.01);
    EXPECT_NEAR(truth["repeated"]["least"]["psnr"], 32.57, 0.01);
}

TEST(Player, EndsWithOneWhenASessionFails) {
    const std::pair<std::string, const char*> cases[] = {
        {"--fault getNewVppSession=1", "the session could not be enabled"},
        {"--fault open=1", "the session did not start"},
        {"--fault RGBToNV12=1@4+", "9 source frames were refused"},
        {"--fault outputBufferDone=drop@9 --verify", "--verify: source frame 4 did not come out"},
        {"--fault outputBufferDone=twice@9 --verify", "--verify: of"},
        {"--fault queueBuf=7@9999", "--fault queueBuf=7@9999 never fired"},
        {"--fault queueBuf=die@20", "the service died"},
        {"--fault getNewVppSession=die", "the service died"},
        {"--fault setCtrlFrc=transport --verify", "--verify: 0 of 1 interpolated frames"},
        {"--fault setCtrlFrc=transport --truth 2", "5 frames held out were not interpolated"},
        {"--sheet /dev/null --sheet-at 50", "the frame of --sheet-at did not come out"},
        {"--fault queueBuf=7@4+", "(the same again"},
        {"--budget interpolated=12", "qozplay: interpolated is 11, under the budget of 12"},
    };
    for (const auto& [args, message] : cases) {
        const Outcome failed = run("--scene-size 64x48 --frames 12 " + args);
        EXPECT_EQ(failed.code, 1) << args;
        EXPECT_THAT(failed.err, HasSubstr(message));
    }
    const Outcome kept = run("--scene-size 64x48 --frames 40 --fault inputBufferDone=drop@1+");
    EXPECT_EQ(kept.code, 1);
    EXPECT_THAT(kept.err, HasSubstr("the service keeps its inputs"));
    EXPECT_EQ(run("--scene-size 64x48 --frames 12").code, 0) << "still armed";
}

}  // namespace
}  // namespace qozplay
