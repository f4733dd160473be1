// SPDX-License-Identifier: Apache-2.0
// Tests with descriptors, threads and connections that cannot be created or are lost, in the client
// and in the service.
#include <android/binder_ibinder.h>
#include <sys/resource.h>

#include <csignal>
#include <filesystem>
#include <fstream>

#include "support/FailThread.h"
#include "support/ServiceProcess.h"
#include "support/VppdPeers.h"

namespace qoz::test {
namespace {

using namespace std::chrono_literals;
using client::LiveClient;
using host::vppd::toBus;
using Clock = std::chrono::steady_clock;

// Lowers a resource limit of the process during its life.
class Limit {
  public:
    Limit(decltype(RLIMIT_NOFILE) which, rlim_t value) : mWhich(which) {
        getrlimit(mWhich, &mBefore);
        const rlimit lowered{value, mBefore.rlim_max};
        setrlimit(mWhich, &lowered);
    }
    ~Limit() { setrlimit(mWhich, &mBefore); }
    Limit(const Limit&) = delete;
    Limit& operator=(const Limit&) = delete;

  private:
    const decltype(RLIMIT_NOFILE) mWhich;
    rlimit mBefore{};
};

// Returns the calls of a session in the order in which a client makes them.
using SessionCall = std::function<ndk::ScopedAStatus(vpp::IVpp&, VppError*)>;
std::vector<std::pair<const char*, SessionCall>> sessionCalls() {
    using Session = vpp::IVpp;
    const auto recorder = ndk::SharedRefBase::make<SessionRecorder>();
    const auto pixels = frame(kSmall);
    const std::vector<vpp::VppCtrlFrcSegment> segments(1);
    const vpp::VppPortParam ports = port(kSmall);
    vpp::VppCtrlAis ais;
    ais.mode = 2;
    const auto queue = [pixels](VppPort to, int64_t cookie) {
        return [=](Session& s, VppError* r) {
            return s.queueBuf(to, record(pixels, cookie, 1000), r);
        };
    };
    return {
        {"initSession", [=](Session& s, VppError* r) { return s.initSession(0, recorder, r); }},
        {"setCtrlVppMode", [](Session& s, VppError* r) { return s.setCtrlVppMode(kFrameMode, r); }},
        {"setCtrlAis", [=](Session& s, VppError* r) { return s.setCtrlAis(ais, r); }},
        {"setCtrlFrc", [=](Session& s, VppError* r) { return s.setCtrlFrc(segments, r); }},
        {"setParameter",
         [=](Session& s, VppError* r) { return s.setParameter(VppPort::INPUT, ports, r); }},
        {"setParameter",
         [=](Session& s, VppError* r) { return s.setParameter(VppPort::OUTPUT, ports, r); }},
        {"open", [](Session& s, VppError* r) { return s.open(r); }},
        {"queueBuf", queue(VppPort::OUTPUT, 1 | kOutputBit)},
        {"queueBuf", queue(VppPort::INPUT, 1)},
        {"drain", [](Session& s, VppError* r) { return s.drain(r); }},
        {"flush", [](Session& s, VppError* r) { return s.flush(VppPort::OUTPUT, r); }},
        {"reconfigure", [=](Session& s, VppError* r) { return s.reconfigure(ports, ports, r); }},
        {"close", [](Session& s, VppError* r) { return s.close(r); }},
        {"terminateSession",
         [](Session& s, VppError* r) {
             *r = VppError::VPP_OK;
             return s.terminateSession();
         }},
    };
}

// Makes every call of a session during a shortage. Each must end in time, with its usual result or
// with VPP_ERR_RESOURCES; in the second case it must succeed after the shortage. `refused` counts
// those.
template <typename MakeShort>
void sweepCalls(const MakeShort& makeShort, int* refused) {
    const auto session = newSession();
    ASSERT_NE(session, nullptr);
    for (const auto& [name, call] : sessionCalls()) {
        SCOPED_TRACE(name);
        VppError result = VppError::VPP_PENDING;
        {
            const auto shortage = makeShort();
            const auto start = Clock::now();
            // No expectation here: a failure message may need a descriptor, too.
            const bool ok = call(*session, &result).isOk();
            const auto took = Clock::now() - start;
            EXPECT_TRUE(ok);
            EXPECT_LT(took, host::vppd::kCallLimit);
        }
        if (result == VppError::VPP_ERR_RESOURCES) {
            ++*refused;
            EXPECT_TRUE(call(*session, &result).isOk());
        }
        EXPECT_EQ(result, VppError::VPP_OK);
        Watchdog::feed();
    }
}

TEST_F(VppdPeers, AnyCallMayBeShortOfADescriptor) {
    LogCapture quiet;
    int refused = 0;
    for (rlim_t spare = 0; spare < 4; ++spare) {
        SCOPED_TRACE(spare);
        sweepCalls(
            [&] {
                // The limit leaves `spare` numbers from the lowest free one.
                const ndk::ScopedFileDescriptor next(fcntl(0, F_DUPFD_CLOEXEC, 0));
                return Limit(RLIMIT_NOFILE, static_cast<rlim_t>(next.get()) + spare);
            },
            &refused);
    }
    EXPECT_GT(refused, 0) << "no descriptor was missing";
    EXPECT_EQ(service.deaths(), 0U);
}

// Makes the creation of the `number`th thread in this process fail during its life.
struct MissingThread {
    explicit MissingThread(int number) { failThreads(number); }
    ~MissingThread() { failThreads(0); }
    MissingThread(const MissingThread&) = delete;
    MissingThread& operator=(const MissingThread&) = delete;
};

TEST_F(VppdPeers, AnyCallMayBeShortOfAThread) {
    LogCapture quiet;
    int refused = 0;
    for (int number = 1; number <= 3; ++number) {
        SCOPED_TRACE(number);
        sweepCalls([&] { return MissingThread(number); }, &refused);
    }
    EXPECT_EQ(refused, 2) << "initSession makes two threads";
    EXPECT_EQ(service.deaths(), 0U);
}

// The destructor waits for the bus to end, so it must be able to end the bus without a new thread
// and without a new descriptor.
TEST(VppdShortage, ABusEndsWithoutAThreadOrADescriptor) {
    const LogCapture quiet;
    const Watchdog watchdog;
    const auto temporary = std::filesystem::temp_directory_path();
    std::optional<host::PrivateBus> bus(std::in_place, Strings{}, temporary, "/bin/false");
    {
        const MissingThread none(1);
        bus.reset();
    }
    EXPECT_TRUE(hasThreadFailed());
    bus.emplace(Strings{}, temporary, "/bin/false");
    const Limit none(RLIMIT_NOFILE, 3);
    bus.reset();
}

// Counts the death notifications for a session's binder.
struct DeathNotices {
    explicit DeathNotices(vpp::IVpp& session) : binder(session.asBinder()) {
        EXPECT_EQ(AIBinder_linkToDeath(binder.get(), recipient, this), STATUS_OK);
    }
    ~DeathNotices() { AIBinder_DeathRecipient_delete(recipient); }
    DeathNotices(const DeathNotices&) = delete;
    DeathNotices& operator=(const DeathNotices&) = delete;

    std::atomic<int> count{0};
    const ndk::SpAIBinder binder;
    AIBinder_DeathRecipient* const recipient = AIBinder_DeathRecipient_new(
        [](void* cookie) { ++static_cast<DeathNotices*>(cookie)->count; });
};

TEST_F(VppdPeers, ADeathIsAnnouncedAtOnceAndOnce) {
    LogCapture quiet;
    const auto first = newSession(), second = newSession();
    const DeathNotices one(*first), two(*second);
    const pid_t pid = servicePidOf(bus);
    const auto start = Clock::now();
    ASSERT_EQ(kill(pid, SIGKILL), 0);
    EXPECT_TRUE(eventually([&] { return one.count == 1 && two.count == 1; }));
    EXPECT_LT(Clock::now() - start, kLongestEnd);
    VppError result = VppError::VPP_PENDING;
    EXPECT_FALSE(first->open(&result).isOk());
    const auto third = newSession();
    ASSERT_NE(third, nullptr) << "the service is started anew";
    const DeathNotices three(*third);
    EXPECT_EQ(one.count + two.count + three.count, 2);
}

// If this process cannot receive the descriptors of a message, its connection ends, and with it all
// sessions.
TEST_F(VppdPeers, AConnectionThatIsLostIsADeathAndIsMadeAnew) {
    LogCapture quiet;
    auto session = newSession();
    const DeathNotices notices(*session);
    HostilePeer peer(bus.address());
    const auto mine = frame(kSmall);
    VppBuffer many = record(mine, 1, 1);
    while (many.pixelHandle.fds.size() < 100)
        share(mine, &many.pixelHandle);
    std::vector<std::function<void()>> calls;
    for (const std::string& name : peer.others())
        calls.push_back(
            peer.prepare(name, host::vppd::kCallbacksInterface, "OutputBufferDone", toBus(many)));
    {
        const Limit none(RLIMIT_NOFILE, 3);
        for (const auto& send : calls)
            send();
        EXPECT_TRUE(eventually([&] { return notices.count == 1; }));
    }
    VppError result = VppError::VPP_PENDING;
    EXPECT_FALSE(session->open(&result).isOk());
    session = newSession();
    ASSERT_NE(session, nullptr);
    EXPECT_TRUE(session->open(&result).isOk());
    EXPECT_EQ(service.deaths(), 1U);
}

// Writes a program for a bus to start: the service process, which cannot create its thread
// `number`. The program appends its exit code to the file "ends". Returns the program's path.
std::string withoutThread(int number, const std::filesystem::path& folder) {
    std::string script = folder / "vppd";
    std::ofstream(script) << "#!/bin/sh\nQOZ_FAIL_THREAD=" << number
                          << " " QOZ_VPPD_SHORT " \"$@\"\necho $? >> " << folder.string()
                          << "/ends\n";
    std::filesystem::permissions(script, std::filesystem::perms::owner_all);
    return script;
}

bool playsOneFrame() {
    LiveClient client;
    if (!client.start(kW, kH, kDouble)) return false;
    EXPECT_TRUE(client.send(kW, kH, kFrameNs));
    EXPECT_TRUE(client.waitForTimestamp(kFrameNs / 1000));
    client.stop();
    EXPECT_EQ(client.account(), "");
    return true;
}

// If a thread is missing at its start, the service process may end with a message. A missing thread
// of a session must not end it, and the next client must be served.
TEST(VppdThreads, TheOneThatCannotBeHadEndsNoService) {
    LogCapture quiet;
    std::string pattern = std::filesystem::temp_directory_path() / "qoz-threads-XXXXXX";
    ASSERT_NE(mkdtemp(pattern.data()), nullptr);
    const std::filesystem::path folder = pattern;
    int refused = 0;
    for (int number = 1; number <= 16; ++number) {
        SCOPED_TRACE(number);
        bool plays = false;
        {
            const host::PrivateBus bus({}, folder, withoutThread(number, folder));
            const host::RemoteVppService service(bus.address());
            plays = playsOneFrame();
            refused += plays ? 0 : 1;
            plays = plays || playsOneFrame();
            EXPECT_EQ(service.deaths(), 0U);
        }
        int end = -1;
        EXPECT_TRUE(eventually([&] { return (std::ifstream(folder / "ends") >> end).good(); }));
        EXPECT_EQ(end, plays ? 0 : 1);
        std::filesystem::remove(folder / "ends");
    }
    EXPECT_GT(refused, 0) << "no thread of a session's was missing";
    std::filesystem::remove_all(folder);
}

}  // namespace
}  // namespace qoz::test
