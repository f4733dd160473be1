// SPDX-License-Identifier: Apache-2.0
// Tests of the service in its own process: shared memory, records, and the state of a client after
// that process has been killed. qozplay_process_test shows that its frames are the same as those of
// an inline service.
#include <client/LiveClient.h>
#include <host/vppd/Bus.h>
#include <host/vppd/Names.h>
#include <host/vppd/Records.h>
#include <host/vppd/RemoteService.h>
#include <sys/mman.h>

#include <atomic>
#include <csignal>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <optional>
#include <stdexcept>
#include <thread>

#include "support/Fixture.h"
#include "support/ServiceProcess.h"
#include "support/VppSessionClient.h"

namespace qoz::test {
namespace {

constexpr uint32_t kW = 320;
constexpr uint32_t kH = 192;
constexpr int64_t kFrameNs = 33333000;
constexpr ConfigParams kDouble{1, 0, 1, 0};

// The greatest duration of a client's call: three seconds for a missing answer, and one second
// because the machine may be busy.
constexpr auto kLongestCall = std::chrono::seconds(4);

void sendFrame(client::LiveClient& client, int number) {
    ASSERT_TRUE(client.send(kW, kH, number * kFrameNs, [number](uint8_t* rgba) {
        for (uint32_t i = 0; i < kW * kH; ++i) {
            const auto x = static_cast<int>(i % kW) - 8 * number;
            memset(rgba + size_t{i} * 4, textured(x, static_cast<int>(i / kW)), 4);
        }
    }));
}

void sendAndAwait(client::LiveClient& client, int from, int to) {
    for (int n = from; n < to; ++n)
        sendFrame(client, n);
    ASSERT_TRUE(client.waitForTimestamp(static_cast<uint64_t>((to - 1) * kFrameNs / 1000)));
}

void playWell() {
    client::LiveClient client;
    EXPECT_TRUE(client.start(kW, kH, kDouble));
    sendAndAwait(client, 0, 8);
    client.stop();
    EXPECT_EQ(client.account(), "");
}

// Returns the kernel's letter for the state of a process. In the line it follows the process's
// name, which ends with ") ".
char stateOf(pid_t pid) {
    std::ifstream stat("/proc/" + std::to_string(pid) + "/stat");
    std::string line;
    std::getline(stat, line);
    const auto name = line.rfind(") ");
    return name == std::string::npos ? '?' : line[name + 2];
}

// A fixture with a service process on a private bus.
class Vppd : public ResourceTest {
  protected:
    static int sessionCount() {
        int32_t count = -1;
        registeredService()->getSessionCount(&count);
        return count;
    }
    pid_t killService(int signal) {
        const pid_t pid = servicePidOf(bus);
        EXPECT_EQ(kill(pid, signal), 0);
        return pid;
    }

    const host::PrivateBus bus;
    host::RemoteVppService service{bus.address()};
};

TEST_F(Vppd, SurvivesTheKillingOfTheService) {
    using Step = std::function<void(client::LiveClient&)>;
    const Step nothing = [](client::LiveClient&) {};
    const Step begin = [](client::LiveClient& c) {
        c.vpp->config(kW, kH, kRgba, kDouble, true);
        sendAndAwait(c, 0, 4);
    };
    const Step send = [](client::LiveClient& c) { sendFrame(c, 4); };
    const Step flush = [](client::LiveClient& c) { c.vpp->flushsync(); };
    const struct {
        const char* moment;
        Step before, after;
    } cases[] = {
        {"before the start", nothing,
         [](client::LiveClient& c) { c.vpp->config(kW, kH, kRgba, kDouble, true); }},
        {"between frames", begin, send},
        {"with a frame under way", [&](client::LiveClient& c) { begin(c), send(c); }, nothing},
        {"before a flush", begin, flush},
        {"after a flush", [&](client::LiveClient& c) { begin(c), flush(c); }, send},
    };
    LogCapture quiet;
    uint64_t deaths = 0;
    for (const auto& c : cases) {
        SCOPED_TRACE(c.moment);
        client::LiveClient client;
        ASSERT_TRUE(client.enable());
        c.before(client);
        const pid_t killed = killService(SIGKILL);
        for (const Step& step : {c.after, Step([](client::LiveClient& l) { l.vpp->disable(); })}) {
            const auto start = std::chrono::steady_clock::now();
            step(client);
            EXPECT_LT(std::chrono::steady_clock::now() - start, kLongestCall);
        }
        ++deaths;
        EXPECT_TRUE(eventually([&] { return service.deaths() == deaths; }));
        // The ledger has all buffers that were lost, and no buffer is returned twice or late.
        const client::Ledger ledger = client.ledger();
        const auto& totals = ledger.totals();
        EXPECT_EQ(totals.queued, totals.returned + totals.refused + ledger.missing().size());
        EXPECT_EQ(client.doubled(), 0U);
        client.vpp.reset();
        playWell();
        EXPECT_NE(bus.servicePid().value_or(killed), killed);
        EXPECT_EQ(client.ledger().missing(), ledger.missing());
        Watchdog::feed();
    }
}

TEST_F(Vppd, AHungServiceHoldsACallUpForTwoSeconds) {
    LogCapture quiet;
    const auto session = newSession();
    const pid_t stopped = killService(SIGSTOP);
    // The signal may take effect after kill() has returned, so a thread of the service might still
    // answer.
    ASSERT_TRUE(eventually([&] { return stateOf(stopped) == 'T'; }));
    const auto start = std::chrono::steady_clock::now();
    VppError result = VppError::VPP_PENDING;
    EXPECT_FALSE(session->open(&result).isOk());
    EXPECT_EQ(result, VppError::VPP_PENDING) << "a call that failed has no result";
    EXPECT_LT(std::chrono::steady_clock::now() - start, kLongestCall);
    killService(SIGCONT);
    EXPECT_TRUE(eventually([&] { return session->open(&result).isOk(); }));
    EXPECT_EQ(result, VppError::VPP_ERR_STATE);
}

TEST_F(Vppd, AClientThatLeavesTheBusTakesItsSessionsAlong) {
    const auto kept = newSession();
    {
        host::vppd::Bus other(bus.address());
        other.start({});
        const auto proxy =
            sdbus::createProxy(other.connection(), host::vppd::kBusName, host::vppd::kServicePath);
        sdbus::ObjectPath path;
        proxy->callMethod("GetNewVppSession")
            .onInterface("org.qoz.VppService1")
            .withArguments(int32_t{0})
            .storeResultsTo(path);
        EXPECT_EQ(sessionCount(), 2);
    }
    EXPECT_TRUE(eventually([] { return sessionCount() == 1; }));
}

// Returns a record whose members all have different values.
VppBuffer fullBuffer() {
    VppBuffer b;
    const auto addPipe = [](auto& handle) {
        handle.fds.emplace_back(memfd_create("record", MFD_CLOEXEC));
        handle.ints = {-1, 99};
    };
    addPipe(b.pixelHandle);
    addPipe(b.auxHandle);
    b.pixelOffset = 1, b.pixelAllocLen = 20, b.pixelFilledLen = 3, b.pixelSize = 4;
    b.auxOffset = 5, b.auxAllocLen = 60, b.auxFilledLen = 7, b.auxSize = 8;
    b.reserved32 = 9, b.timestamp = 1ULL << 63, b.reserved64 = 10, b.cookie = -11;
    auto& meta = b.metaBuffers.emplace_back(vpp::VppMetaBuffer{"name", {}, 12, 13, 14, 15, 16, 17});
    addPipe(meta.metaHandle);
    return b;
}

TEST(VppdRecords, ComeBackAsTheyWent) {
    const auto onBus = host::vppd::toBus(fullBuffer());
    const auto back = host::vppd::fromBus(host::vppd::BusBuffer(onBus));
    ASSERT_TRUE(back);
    const auto again = host::vppd::toBus(*back);
    const auto numbers = [](const host::vppd::BusBuffer& b) {
        const auto& m = b.get<10>().at(0);
        return std::tuple(b.get<1>(), b.get<2>(), b.get<3>(), b.get<4>(), b.get<6>(), b.get<7>(),
                          b.get<8>(), b.get<9>(), b.get<11>(), b.get<12>(), b.get<13>(),
                          b.get<14>(), b.get<0>().get<1>(), b.get<5>().get<1>(), m.get<0>(),
                          m.get<1>().get<1>(), m.get<2>(), m.get<3>(), m.get<4>(), m.get<5>(),
                          m.get<6>(), m.get<7>());
    };
    EXPECT_EQ(numbers(again), numbers(onBus));
    EXPECT_EQ(back->pixelFilledLen, 3U);
    EXPECT_EQ(back->metaBuffers[0].reserved5, 17U);
    EXPECT_EQ(fcntl(back->auxHandle.fds.at(0).get(), F_GETFD), FD_CLOEXEC);
}

TEST_F(Vppd, RefusesMalformedRecords) {
    const auto bad = VppError::VPP_ERR_PARAM;
    const std::pair<VppError, std::function<void(VppBuffer&)>> cases[] = {
        {VppError::VPP_ERR_STATE, [](VppBuffer&) {}},  // correct, but the session is not open
        {bad,
         [](VppBuffer& b) {
             for (int i = 0; i < 16; ++i) {
                 b.pixelHandle.fds.emplace_back(
                     fcntl(b.auxHandle.fds[0].get(), F_DUPFD_CLOEXEC, 0));
             }
         }},
        {bad, [](VppBuffer& b) { b.auxHandle.ints.resize(65); }},
        {bad, [](VppBuffer& b) { b.metaBuffers.resize(17); }},
        {bad, [](VppBuffer& b) { b.metaBuffers[0].metaName.resize(256, 'x'); }},
        {bad, [](VppBuffer& b) { b.pixelFilledLen = b.pixelAllocLen + 1; }},
    };
    const auto session = newSession();
    const auto pid = bus.servicePid();
    for (const auto& [expected, change] : cases) {
        VppBuffer buffer = fullBuffer();
        change(buffer);
        VppError result = VppError::VPP_OK;
        EXPECT_TRUE(session->queueBuf(VppPort::INPUT, buffer, &result).isOk());
        EXPECT_EQ(result, expected) << buffer.metaBuffers.size() << " side buffers";
    }
    VppError result = VppError::VPP_OK;
    EXPECT_TRUE(session->setCtrlFrc(std::vector<vpp::VppCtrlFrcSegment>(1025), &result).isOk());
    EXPECT_EQ(result, bad);
    EXPECT_EQ(bus.servicePid(), pid) << "a bad record ended the service";
}

// Interrupts the system calls in which the thread that creates the object waits, by a signal each
// millisecond, during its life.
class Interruptions {
  public:
    Interruptions() {
        struct sigaction action = {};
        action.sa_handler = [](int) {};
        sigaction(SIGUSR1, &action, &mBefore);
        mThread = std::thread([this, target = pthread_self()] {
            while (!mOver) {
                pthread_kill(target, SIGUSR1);
                std::this_thread::sleep_for(std::chrono::milliseconds(1));
            }
        });
    }
    ~Interruptions() {
        mOver = true;
        mThread.join();
        sigaction(SIGUSR1, &mBefore, nullptr);
    }
    Interruptions(const Interruptions&) = delete;
    Interruptions& operator=(const Interruptions&) = delete;

  private:
    struct sigaction mBefore {};
    std::atomic<bool> mOver{false};
    std::thread mThread;
};

class BusStart : public ResourceTest {};

TEST_F(BusStart, IsNotEndedByASignal) {
    std::optional<host::PrivateBus> bus;
    {
        const Interruptions interruptions;
        bus.emplace();
    }
    EXPECT_NE(bus->address(), "");
}

// The program that starts the bus is searched for in PATH, where this test puts one that says
// nothing and does not end.
TEST_F(BusStart, IsGivenUpWhenTheBusSaysNothing) {
    std::string pattern = std::filesystem::temp_directory_path() / "qoz-silent-XXXXXX";
    ASSERT_NE(mkdtemp(pattern.data()), nullptr);
    const std::filesystem::path folder = pattern;
    std::ofstream(folder / "setpriv") << "#!/bin/sh\nexec sleep 60\n";
    std::filesystem::permissions(folder / "setpriv", std::filesystem::perms::owner_all);
    const std::string usual = getenv("PATH");
    setenv("PATH", (folder.string() + ':' + usual).c_str(), 1);
    EXPECT_THROW(host::PrivateBus(), std::runtime_error);
    setenv("PATH", usual.c_str(), 1);
    std::filesystem::remove_all(folder);
    siginfo_t info{};
    EXPECT_EQ(waitid(P_ALL, 0, &info, WEXITED | WNOHANG | WNOWAIT), -1) << "a child is left";
}

}  // namespace
}  // namespace qoz::test
