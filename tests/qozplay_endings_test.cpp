// SPDX-License-Identifier: Apache-2.0
// Tests of runs of the player that end early: by signals at any moment, and for lack of memory,
// threads, descriptors or disk space. Each run is its own process, which does the same as main().
#include <fcntl.h>
#include <host/control.h>
#include <nlohmann/json.hpp>
#include <sys/ioctl.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <climits>
#include <csignal>
#include <functional>
#include <thread>

#include "qozplay/run/Ending.h"
#include "qozplay_files.h"
#include "support/FailThread.h"
#include "support/Sanitized.h"

namespace qozplay {
namespace {

using testing::Not;

constexpr Size kClip{64, 48};

// The end of a player process: its result and its standard error.
struct Ended {
    int code;  // exit code, or 1000 plus the number of the signal that killed the process
    std::string err;
};

// A process that runs the player in its own process group, like a command on a terminal.
class PlayerProcess {
  public:
    PlayerProcess(
        const Folder& folder, const std::string& line, const std::function<void()>& prepare = [] {})
        : mErr(folder.file("err")) {
        int ends[2];
        int ready[2];
        if (pipe2(ends, O_CLOEXEC) != 0 || pipe2(ready, O_CLOEXEC) != 0)
            throw std::runtime_error("no pipe");
        mInput = ends[1];
        mPid = fork();
        // kill() and waitpid() would take the number of a failed fork for many processes.
        if (mPid < 0) throw std::runtime_error("no process");
        if (mPid == 0) {
            setpgid(0, 0);
            dup2(ends[0], STDIN_FILENO);
            close(ends[1]);
            setenv("TMPDIR", folder.file("tmp").c_str(), 1);
            (void)!freopen(mErr.c_str(), "w", stderr);
            (void)!freopen("/dev/null", "w", stdout);
            _exit(playAsMain(line, [&] {
                close(ready[0]);
                close(ready[1]);
                prepare();
            }));
        }
        close(ends[0]);
        close(ready[1]);
        char byte;
        // The read ends when the player has set up its signals and has closed the pipe.
        (void)!read(ready[0], &byte, 1);
        close(ready[0]);
    }
    ~PlayerProcess() { closeInput(); }

    void feed(const std::string& bytes) const {
        ASSERT_EQ(write(mInput, bytes.data(), bytes.size()), static_cast<ssize_t>(bytes.size()));
    }
    void closeInput() {
        if (mInput >= 0) close(mInput);
        mInput = -1;
    }
    void signal(int number) const { kill(-mPid, number); }

    // Leaves the result to wait().
    bool hasEnded() const {
        siginfo_t info{};
        return waitid(P_PID, static_cast<id_t>(mPid), &info, WEXITED | WNOHANG | WNOWAIT) != 0 ||
               info.si_pid == mPid;
    }

    Ended wait() const {
        int status = 0;
        waitpid(mPid, &status, 0);
        return {WIFEXITED(status) ? WEXITSTATUS(status) : 1000 + WTERMSIG(status), contentOf(mErr)};
    }

  private:
    static int playAsMain(const std::string& line, const std::function<void()>& prepare) {
        endPlainly();
        static StopRequest stop;
        stopOnSignals(stop);
        prepare();
        return run(line, stop, std::cout, std::cerr);
    }

    const std::string mErr;
    int mInput = -1;
    pid_t mPid = -1;
};

// A folder for one run, with a subfolder that the player uses for temporary files.
struct Place : Folder {
    Place() { std::filesystem::create_directory(file("tmp")); }
    bool leftNothing() const { return std::filesystem::is_empty(file("tmp")); }
    size_t entries() const {
        return static_cast<size_t>(
            std::distance(std::filesystem::directory_iterator(file("")), {}));
    }
};

void expectPlain(const Ended& ended, const std::string& when) {
    EXPECT_TRUE(ended.code >= 0 && ended.code <= 2) << when << ": " << ended.code << "\n"
                                                    << ended.err;
    if (ended.code == 0) return;
    EXPECT_THAT(ended.err, HasSubstr("qozplay: ")) << when;
}

TEST(Ending, IsInOrderAfterASignalAtAnyFrame) {
    for (const std::string service : {"inline", "process"}) {
        for (int frames = 0; frames < 10; ++frames) {
            const Place place;
            const int signals[] = {SIGINT, SIGTERM, SIGHUP};
            const int signal = signals[frames % 3];
            const std::string line = "-i - -o " + place.file("out.y4m") + " --stats " +
                                     place.file("stats.json") + " --sheet " + place.file("s.png") +
                                     " --trace " + place.file("t.json") + " --service " + service;
            const PlayerProcess player(place, line);
            player.feed("YUV4MPEG2 W64 H48 F30:1\n");
            for (int i = 0; i < frames; ++i)
                player.feed("FRAME\n" + grey(kClip, static_cast<char>(50 + i)));
            player.signal(signal);
            const Ended ended = player.wait();
            EXPECT_EQ(ended.code, 128 + signal) << service << frames << ended.err;
            EXPECT_TRUE(place.leftNothing());
            // Without this file, the signal came before the run.
            if (!std::filesystem::exists(place.file("stats.json"))) continue;
            const nlohmann::json stats = nlohmann::json::parse(place.read("stats.json"));
            const nlohmann::json& session = stats["sessions"][0];
            EXPECT_EQ(session["frames"]["source"], session["frames"]["in"]);
            EXPECT_EQ(session["buffers"]["lost"], 0);
            EXPECT_FALSE(nlohmann::json::parse(place.read("t.json")).empty());
            if (session["frames"]["out"] == 0) continue;
            const std::string clip = place.read("out.y4m");
            EXPECT_EQ(clip.size(),
                      clip.find('\n') + 1 +
                          session["frames"]["out"].get<size_t>() * (6 + i420Bytes(kClip)));
        }
    }
}

TEST(Ending, IsInOrderAlthoughNobodyReadsTheOutput) {
    const Place place;
    int pipe[2];
    ASSERT_EQ(pipe2(pipe, O_CLOEXEC), 0);
    const PlayerProcess player(place, "--scene-size 320x240 --frames 30 -o -",
                               [&] { dup2(pipe[1], STDOUT_FILENO); });
    const int full = fcntl(pipe[0], F_GETPIPE_SZ) - PIPE_BUF;
    int unread = 0;
    while (ioctl(pipe[0], FIONREAD, &unread) == 0 && unread < full && !player.hasEnded())
        std::this_thread::sleep_for(std::chrono::milliseconds(1));
    EXPECT_GE(unread, full) << "the player has ended early";
    player.signal(SIGTERM);
    EXPECT_EQ(player.wait().code, 128 + SIGTERM);
    EXPECT_TRUE(place.leftNothing());
    close(pipe[0]);
    close(pipe[1]);
}

TEST(Ending, IsAtOnceAfterASecondSignal) {
    const Place place;
    // The last flush is not answered, so an orderly end would take seconds.
    PlayerProcess player(
        place, "-i - --service process --fault eventFlushDone=drop@1+ -o " + place.file("out.y4m"));
    player.feed("YUV4MPEG2 W64 H48 F30:1\nFRAME\n" + grey(kClip, 50));
    player.signal(SIGINT);
    player.signal(SIGTERM);
    EXPECT_EQ(player.wait().code, 128 + SIGTERM);
    EXPECT_TRUE(place.leftNothing());
    EXPECT_FALSE(std::filesystem::exists(place.file("out.y4m")));
}

TEST(Ending, GivesNoFileTheNumberOfAStandardStream) {
    const pid_t child = fork();
    ASSERT_GE(child, 0);
    if (child == 0) {
        for (int stream = 0; stream <= 2; ++stream)
            close(stream);
        holdStandardStreams();
        char byte = 0;
        const bool useless = read(0, &byte, 1) < 0 && write(1, "x", 1) < 0 && write(2, "x", 1) < 0;
        _exit(useless && open("/dev/null", O_RDONLY | O_CLOEXEC) > 2 ? 0 : 1);
    }
    int status = 0;
    waitpid(child, &status, 0);
    EXPECT_EQ(status, 0);
}

const char kShort[] = "--scene-size 64x48 --frames 12 ";

TEST(Ending, IsASentenceWhateverThreadCannotBeHad) {
    int failed = 0;
    for (const std::string service : {"inline", "process"}) {
        // With a sanitizer each run takes two seconds.
        for (int nth = 1; nth <= 20; nth += qoz::test::kSanitized ? 3 : 1) {
            const Place place;
            const PlayerProcess player(place, kShort + ("--service " + service),
                                       [nth] { qoz::test::failThreads(nth); });
            const Ended ended = player.wait();
            expectPlain(ended, service + ", thread " + std::to_string(nth));
            failed += ended.code == 0 ? 0 : 1;
            EXPECT_TRUE(place.leftNothing());
        }
    }
    EXPECT_GT(failed, 2) << "the limit is none";
}

// The limit is the memory that the program uses before the run, plus a number of MiB. The output is
// FFV1, because the encoder library for H.264 crashes when it cannot allocate memory.
TEST(Ending, IsASentenceHoweverLittleMemoryThereIs) {
    if (qoz::test::kSanitized) GTEST_SKIP() << "the sanitizers need the address space";
    for (rlim_t mebibytes = 1; mebibytes <= 256; mebibytes += mebibytes / 4 + 1) {
        const Place place;
        const PlayerProcess player(place, kShort + ("-o " + place.file("out.mkv")), [mebibytes] {
            long pages = 0;
            std::ifstream("/proc/self/statm") >> pages;
            const rlim_t limit =
                static_cast<rlim_t>(pages) * static_cast<rlim_t>(sysconf(_SC_PAGESIZE)) +
                (mebibytes << 20);
            const rlimit both{limit, limit};
            setrlimit(RLIMIT_AS, &both);
        });
        expectPlain(player.wait(), std::to_string(mebibytes) + " MiB");
        EXPECT_TRUE(place.leftNothing());
    }
}

TEST(Ending, IsASentenceHoweverFewDescriptorsThereAre) {
    for (rlim_t count = 4; count <= 60; count += 14) {
        const Place place;
        const PlayerProcess player(place, kShort + ("-o " + place.file("out.y4m")), [count] {
            const rlimit both{count, count};
            setrlimit(RLIMIT_NOFILE, &both);
        });
        expectPlain(player.wait(), std::to_string(count) + " descriptors");
        EXPECT_TRUE(place.leftNothing());
    }
}

TEST(Ending, LeavesNoHalfFileWhenTheDiskIsFull) {
    for (const std::string name : {"out.y4m", "out.mkv", "out.mp4"}) {
        const Place place;
        place.write(name, "before");
        const std::string line = "--scene-size 64x48 -o " + place.file(name);
        const PlayerProcess player(place, line, [] {
            const rlimit both{16384, 16384};  // large enough for graphic buffers
            setrlimit(RLIMIT_FSIZE, &both);
        });
        const Ended ended = player.wait();
        EXPECT_EQ(ended.code, 1) << ended.err;
        EXPECT_THAT(ended.err, HasSubstr("cannot write"));
        EXPECT_THAT(ended.err, Not(HasSubstr("never came out"))) << "which is the consequence";
        EXPECT_EQ(place.read(name), "before");
        EXPECT_EQ(place.entries(), 3U) << "it, standard error and the folder for temporary files";
    }
}

}  // namespace
}  // namespace qozplay
