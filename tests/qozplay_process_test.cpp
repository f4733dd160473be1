// SPDX-License-Identifier: Apache-2.0
// The player with the service in a process of its own: the same frames, and the end of that process
// at any moment.
#include <nlohmann/json.hpp>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <csignal>
#include <iostream>
#include <map>
#include <optional>
#include <random>
#include <thread>

#include "qozplay_files.h"
#include "support/Sanitized.h"

namespace qozplay {
namespace {

using namespace std::chrono_literals;

// Three seconds for an answer that never comes, and room for the machine.
constexpr auto kLongestEnd = qoz::test::kSanitized ? 6s : 2s;  // below the limit of a wait

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

// The service of the player that runs: its bus has handed it this folder for temporary files. No
// question to the bus, which the player may be starting or ending.
std::optional<pid_t> servicePid(const std::string& folder) {
    std::error_code gone;
    for (const auto& entry : std::filesystem::directory_iterator("/proc", gone)) {
        if (contentOf(entry.path() / "comm") != "qoz-vppd\n") continue;
        if (contentOf(entry.path() / "environ").find(folder) == std::string::npos) continue;
        return std::stoi(entry.path().filename());
    }
    return std::nullopt;
}

// A clip in whose course the service is killed: when it has been there for this long.
struct Killed {
    Outcome outcome = {};
    bool landed = false;
    std::chrono::steady_clock::time_point at, end;
    nlohmann::json stats = {};
};

Killed playAndKill(const Folder& folder, const std::string& line,
                   std::chrono::duration<double> age) {
    Killed killed;
    std::atomic<bool> over{false};
    std::thread killer([&] {
        const std::string place = folder.file("");
        while (!over && !servicePid(place)) {
        }
        std::this_thread::sleep_for(age);
        const auto service = servicePid(place);
        killed.at = std::chrono::steady_clock::now();
        killed.landed = service && kill(*service, SIGKILL) == 0;
    });
    killed.outcome = run(line);
    killed.end = std::chrono::steady_clock::now();
    over = true;
    killer.join();
    killed.stats = nlohmann::json::parse(folder.read("stats.json"));
    return killed;
}

// The one message of an end as it should be; "no harm" when the kill came too late to be noticed.
std::string plainEnd(const Killed& killed) {
    const std::string& err = killed.outcome.err;
    const auto& buffers = killed.stats["sessions"][0]["buffers"];
    EXPECT_EQ(buffers["queued"].get<int>(), buffers["returned"].get<int>() +
                                                buffers["refused"].get<int>() +
                                                buffers["lost"].get<int>());
    EXPECT_EQ(err.find("descriptors"), std::string::npos) << err;
    EXPECT_EQ(buffers["lost"].get<int>(), 0) << "what a dead service had comes back: " << err;
    EXPECT_LT(killed.end - killed.at, kLongestEnd) << err;
    EXPECT_TRUE(killed.outcome.code == 0 || (killed.outcome.code == 1 && killed.landed)) << err;
    if (killed.outcome.code == 0) return "no harm";
    // One that is killed before it has its name has never been there.
    EXPECT_TRUE(err.find("the service died") != std::string::npos ||
                err.find("could not be enabled") != std::string::npos)
        << err;
    for (const char* message : {"could not be enabled", "did not start", "the flush"}) {
        if (err.find(message) != std::string::npos) return message;
    }
    return "while frames were under way";
}

// QOZ_KILLS: how many that meet a service. One clip in five is plain and two have their last flush
// answered late; the other two change size and upscale ratio, which is answered late too. So the
// service mostly dies with the component waiting for it.
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
    std::chrono::duration<double> lives[kLines];  // of a service that nobody kills, and a bit more
    for (size_t kind = 0; kind < kLines; ++kind) {
        const auto start = std::chrono::steady_clock::now();
        const Outcome whole = run(lines[kind]);
        EXPECT_EQ(whole.code, 0) << whole.err;
        lives[kind] = std::chrono::steady_clock::now() - start;
    }
    std::vector<double> seconds;
    std::map<std::string, int> ends;
    size_t clips = 0;
    for (; seconds.size() < kills; ++clips) {
        SCOPED_TRACE("seed " + std::to_string(seed) + ", clip " + std::to_string(clips));
        const double share = std::uniform_real_distribution(0.0, 0.9)(random);
        const Killed killed =
            playAndKill(folder, lines[clips % kLines], share * lives[clips % kLines]);
        const std::string end = plainEnd(killed);
        if (!killed.landed) continue;
        seconds.push_back(std::chrono::duration<double>(killed.end - killed.at).count());
        ++ends[end];
    }
    unsetenv("TMPDIR");
    std::ranges::sort(seconds);
    std::cout << "seed " << seed << ": " << seconds.size() << " kills in " << clips
              << " clips; seconds to the end: min " << seconds.front() << ", median "
              << seconds[seconds.size() / 2] << ", max " << seconds.back();
    for (const auto& [end, count] : ends)
        std::cout << "; " << end << ": " << count;
    std::cout << '\n';
}

}  // namespace
}  // namespace qozplay
