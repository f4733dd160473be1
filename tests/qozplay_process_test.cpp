// SPDX-License-Identifier: Apache-2.0
// Tests of the player with the service in its own process: it makes the same frames as an inline
// service, and that process may be killed at any moment.
#include <host/control.h>
#include <nlohmann/json.hpp>

#include <atomic>
#include <chrono>
#include <csignal>
#include <optional>
#include <random>
#include <thread>

#include "qozplay_files.h"
#include "support/Sanitized.h"

namespace qozplay {
namespace {

using namespace std::chrono_literals;

// The greatest time from the death of the service to the end of a run. Without a sanitizer it is
// below the three seconds that an operation waits for a missing answer.
constexpr auto kLongestEnd = qoz::test::kSanitized ? 6s : 2s;

TEST(PlayerProcess, MakesTheSameFramesAsInline) {
    const Folder folder;
    for (const std::string settings : {"--interp 2 --upscale 1.5", "--ais-only", "--mv off"}) {
        const std::string line = "--scene-size 96x64 --frames 12 " + settings;
        const Outcome inside = run(line + " -o " + folder.file("in.y4m"));
        const Outcome outside = run(line + " --service process -o " + folder.file("out.y4m"));
        EXPECT_EQ(inside.code, 0) << inside.err;
        EXPECT_EQ(outside.code, 0) << outside.err;
        const std::string frames = folder.read("in.y4m");
        EXPECT_GT(frames.size(), 12 * i420Bytes({96, 64}));
        EXPECT_TRUE(frames == folder.read("out.y4m")) << settings;
    }
}

TEST(PlayerProcess, TakesAnyFolderForTemporaryFilesThatASocketCanLieIn) {
    const Folder folder;
    const char* before = getenv("TMPDIR");
    const std::string usual = before != nullptr ? before : "/tmp";
    const std::pair<std::string, const char*> cases[] = {
        {"a b'%", ""}, {std::string(100, 'x'), "the folder for temporary files is too long"}};
    for (const auto& [name, message] : cases) {
        std::filesystem::create_directory(folder.file(name));
        setenv("TMPDIR", folder.file(name).c_str(), 1);
        const Outcome outcome = run("--scene-size 64x48 --frames 4 --service process");
        EXPECT_EQ(outcome.code, *message == '\0' ? 0 : 1) << outcome.err;
        EXPECT_THAT(outcome.err, HasSubstr(message));
        EXPECT_TRUE(std::filesystem::is_empty(folder.file(name)));
    }
    setenv("TMPDIR", usual.c_str(), 1);
}

// Returns the service process that the player has started. It is recognised by the folder for
// temporary files in its environment. The bus cannot be asked, because the player may just be
// starting or ending it.
std::optional<pid_t> servicePid(const std::string& folder) {
    std::error_code gone;
    for (const auto& entry : std::filesystem::directory_iterator("/proc", gone)) {
        if (contentOf(entry.path() / "comm") != "qoz-vppd\n") continue;
        if (contentOf(entry.path() / "environ").find(folder) == std::string::npos) continue;
        return std::stoi(entry.path().filename());
    }
    return std::nullopt;
}

// Plays a clip and kills the service when it has existed for `age`. The run must end soon, with all
// buffers returned, all its descriptors closed and the cause in its message. Returns true if there
// was a service to kill.
bool playAndKill(const Folder& folder, const std::string& line, std::chrono::duration<double> age) {
    const std::string place = folder.file("");
    const int descriptors = qoz::host::openDescriptors();
    std::atomic<bool> over{false};
    bool landed = false;
    Clock::time_point at;
    std::thread killer([&] {
        while (!over && !servicePid(place)) {
        }
        std::this_thread::sleep_for(age);
        const auto service = servicePid(place);
        at = Clock::now();
        landed = service && kill(*service, SIGKILL) == 0;
    });
    const Outcome outcome = run(line);
    const Clock::time_point end = Clock::now();
    over = true;
    killer.join();
    EXPECT_EQ(qoz::host::openDescriptors(), descriptors) << outcome.err;
    const auto buffers = nlohmann::json::parse(folder.read("stats.json"))["sessions"][0]["buffers"];
    EXPECT_EQ(buffers["queued"].get<int>(),
              buffers["returned"].get<int>() + buffers["refused"].get<int>());
    EXPECT_EQ(buffers["lost"], 0) << "what a dead service had comes back: " << outcome.err;
    EXPECT_LT(end - at, kLongestEnd) << outcome.err;
    EXPECT_TRUE(outcome.code == 0 || (outcome.code == 1 && landed)) << outcome.err;
    // A service that is killed before it has registered its name does not exist for the client.
    if (outcome.code == 1) {
        EXPECT_THAT(outcome.err, testing::AnyOf(HasSubstr("the service died"),
                                                HasSubstr("could not be enabled")));
    }
    return landed;
}

// QOZ_KILLS sets the number of services to kill. In two of five clips the last flush is answered
// late, and in two others a change of the size or the upscale ratio, so that the service mostly
// dies while the component waits for it.
TEST(PlayerProcess, EndsWithOneWheneverTheServiceIsKilled) {
    const char* const wanted = getenv("QOZ_KILLS");
    const size_t kills = wanted != nullptr ? std::stoul(wanted) : 6;
    const uint32_t seed = std::random_device{}();
    std::mt19937 random(seed);
    const Folder folder;
    setenv("TMPDIR", folder.file("").c_str(), 1);
    const std::string plain =
        "--service process --scene-size 96x64 --stats " + folder.file("stats.json");
    const std::string lateFlush = plain + " --fault eventFlushDone=late:300@1+";
    const std::string lateChange = " --fault eventReconfigDone=late:1000@1+";
    const std::string lines[] = {plain, lateFlush, plain + " --at 2:size=160x96" + lateChange,
                                 lateFlush, plain + " --at 2:upscale=1.5" + lateChange};
    constexpr size_t kLines = std::size(lines);
    std::chrono::duration<double> lives[kLines];  // duration of a run without a kill
    for (size_t kind = 0; kind < kLines; ++kind) {
        const auto start = Clock::now();
        const Outcome whole = run(lines[kind]);
        EXPECT_EQ(whole.code, 0) << whole.err;
        lives[kind] = Clock::now() - start;
    }
    for (size_t clip = 0, landed = 0; landed < kills; ++clip) {
        SCOPED_TRACE(testing::Message() << "seed " << seed << ", clip " << clip);
        const double share = std::uniform_real_distribution(0.0, 0.9)(random);
        const size_t kind = clip % kLines;
        landed += playAndKill(folder, lines[kind], share * lives[kind]) ? 1 : 0;
    }
    unsetenv("TMPDIR");
}

}  // namespace
}  // namespace qozplay
