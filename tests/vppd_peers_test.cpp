// SPDX-License-Identifier: Apache-2.0
// Clients that share one service: what a hostile one on the same bus can do to another, and what a
// client's own trouble does to itself.
#include <android/binder_ibinder.h>
#include <client/LiveClient.h>
#include <host/vppd/PrivateBus.h>
#include <host/vppd/RemoteService.h>
#include <host/vppservice/Quota.h>
#include <sys/mman.h>
#include <sys/resource.h>

#include <algorithm>
#include <csignal>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iomanip>
#include <sstream>

#include "support/HostilePeer.h"
#include "support/Sanitized.h"

namespace qoz::test {
namespace {

using namespace std::chrono_literals;
using client::LiveClient;
using host::vppd::toBus;
using host::vppservice::kClientBudget;
using Clock = std::chrono::steady_clock;

#ifdef NDEBUG
constexpr bool kSlow = kSanitized;
#else
constexpr bool kSlow = true;  // frames of this size take an unoptimised build minutes
#endif
constexpr uint32_t kW = kSlow ? 320 : 1280;
constexpr uint32_t kH = kSlow ? 180 : 720;
constexpr Size kSize{static_cast<int>(kW), static_cast<int>(kH)};
constexpr int64_t kFrameNs = 33333000;
constexpr int kFrames = kSlow ? 10 : 40;
constexpr ConfigParams kDouble{1, 0, 1, 0};

// The session of the first client that asks a service.
const std::string kVictim = std::string(host::vppd::kSessionFolder) + "1";

// A client that does nothing wrong, and how long each of its frames takes.
class Healthy {
  public:
    Healthy() {
        mClient.onFrame = [this](GraphicBuffer&, uint64_t timestamp) {
            const auto sent = mSent.find(timestamp);
            if (sent != mSent.end()) mTook.push_back(Clock::now() - sent->second);
        };
    }
    void start() { ASSERT_TRUE(mClient.start(kW, kH, kDouble)); }

    // The median over so many frames, sent at an even pace.
    double millisecondsFor(int frames) {
        {
            const std::lock_guard lock(mLock);
            mTook.clear();
        }
        for (int i = 0; i < frames; ++i, ++mNumber) {
            const auto timestamp = static_cast<uint64_t>(mNumber * kFrameNs / 1000);
            {
                const std::lock_guard lock(mLock);
                mSent[timestamp] = Clock::now();
            }
            EXPECT_TRUE(mClient.send(kW, kH, mNumber * kFrameNs));
            EXPECT_TRUE(mClient.waitForTimestamp(timestamp));
            Watchdog::feed();
        }
        const std::lock_guard lock(mLock);
        EXPECT_EQ(mTook.size(), static_cast<size_t>(frames)) << "a frame did not come out";
        if (mTook.empty()) return 0;
        std::ranges::nth_element(mTook, mTook.begin() + static_cast<long>(mTook.size() / 2));
        return std::chrono::duration<double, std::milli>(mTook[mTook.size() / 2]).count();
    }
    void stop() {
        mClient.stop();
        EXPECT_EQ(mClient.account(), "");
    }

  private:
    std::mutex mLock;
    std::map<uint64_t, Clock::time_point> mSent;
    std::vector<Clock::duration> mTook;
    int64_t mNumber = 0;
    LiveClient mClient;
};

using Attack = std::string (*)(const std::string& bus);

std::string queuesOnAnothersSession(const std::string& bus) {
    HostilePeer peer(bus);
    const auto mine = frame(kSize);
    for (const int32_t side : {0, 1}) {
        const auto sent = toBus(record(mine, side == 1 ? 3 | kOutputBit : 3, 1));
        EXPECT_EQ(peer.callSession(kVictim, "QueueBuf", side, sent), kDenied);
    }
    return "refused, and logged";
}

std::string endsAnothersSession(const std::string& bus) {
    HostilePeer peer(bus);
    for (const char* method : {"Close", "TerminateSession", "Drain", "Open"})
        EXPECT_EQ(peer.callSession(kVictim, method), kDenied) << method;
    EXPECT_EQ(peer.callSession(kVictim, "Flush", int32_t{0}), kDenied);
    peer.castSession(kVictim, "Release");
    return "refused, and logged";
}

std::string forgesCallbacks(const std::string& bus) {
    HostilePeer peer(bus);
    VppBuffer filled;
    filled.cookie = 3 | kOutputBit;
    filled.pixelAllocLen = filled.pixelFilledLen = 4096;
    int denied = 0;
    for (const std::string& name : peer.others()) {
        for (int i = 0; i < 32; ++i) {
            const std::string path = host::vppd::kCallbacksFolder + std::to_string(i);
            const auto answer = peer.call(name, path, host::vppd::kCallbacksInterface,
                                          "OutputBufferDone", toBus(filled));
            EXPECT_NE(answer.error, "") << "taken";
            denied += answer == kDenied ? 1 : 0;
        }
    }
    EXPECT_GT(denied, 0) << "the forger missed the client";
    return "refused, and logged";
}

int memory(unsigned flags, off_t bytes, int seals) {
    const int fd = memfd_create("hostile", MFD_CLOEXEC | flags);
    if (fd < 0) return -1;
    EXPECT_EQ(ftruncate(fd, bytes), 0);
    EXPECT_TRUE(seals == 0 || fcntl(fd, F_ADD_SEALS, seals) == 0);
    return fd;
}

std::string pullsMemoryAway(const std::string& bus) {
    HostilePeer peer(bus);
    const std::string session = peer.newOpenSession(kSize);
    const auto good = frame(kSize);
    const auto length = static_cast<off_t>(sizeOf(good));
    // Not sealed, sealed one way only, too small, of huge pages, and no memory at all.
    const int bad[] = {
        memory(0, length, 0),
        memory(MFD_ALLOW_SEALING, length, F_SEAL_GROW),
        memory(MFD_ALLOW_SEALING, length, F_SEAL_SHRINK),
        memory(MFD_ALLOW_SEALING, 4096, F_SEAL_GROW | F_SEAL_SHRINK),
        memory(MFD_ALLOW_SEALING | MFD_HUGETLB, 2 << 20, F_SEAL_GROW | F_SEAL_SHRINK),
        open("/proc/self/exe", O_RDONLY | O_CLOEXEC)};
    for (const int fd : bad) {
        if (fd < 0) continue;  // no huge pages here
        VppBuffer sent = record(good, 1 | kOutputBit, 1);
        sent.pixelHandle.fds[0].set(fd);
        EXPECT_EQ(peer.callSession(session, "QueueBuf", int32_t{1}, toBus(sent)),
                  number(VppError::VPP_ERR_PARAM))
            << &fd - bad;
    }
    EXPECT_EQ(
        peer.callSession(session, "QueueBuf", int32_t{1}, toBus(record(good, 2 | kOutputBit, 1))),
        number(VppError::VPP_OK));
    EXPECT_NE(ftruncate(good->handle->data[0], 0), 0) << "what is queued can be truncated";
    return "memory that is not sealed is refused; sealed memory stays";
}

std::string opensSessionsWithoutEnd(const std::string& bus) {
    HostilePeer peer(bus);
    size_t made = 0;
    while (made <= kClientBudget.sessions && peer.newSession() != host::vppd::kNoSession)
        ++made;
    EXPECT_EQ(made, kClientBudget.sessions);
    return "none beyond " + std::to_string(made);
}

std::string queuesBuffersWithoutEnd(const std::string& bus) {
    HostilePeer peer(bus);
    const std::string session = peer.newOpenSession(kSmall);
    const auto mine = frame(kSmall);
    uint64_t taken = 0;
    PeerAnswer answer;
    for (;;) {
        answer = peer.callSession(session, "QueueBuf", int32_t{1},
                                  toBus(record(mine, 1 | kOutputBit, 1)));
        if (answer != number(VppError::VPP_OK)) break;
        ++taken;
    }
    EXPECT_EQ(answer, number(VppError::VPP_ERR_RESOURCES));
    EXPECT_EQ(taken, kClientBudget.buffers);
    return "VPP_ERR_RESOURCES beyond " + std::to_string(taken);
}

std::string sendsManyDescriptors(const std::string& bus) {
    HostilePeer peer(bus);
    const std::string session = peer.newOpenSession(kSmall);
    const auto mine = frame(kSmall);
    VppBuffer sent = record(mine, 1, 1);
    while (sent.pixelHandle.fds.size() < 250)
        share(mine, &sent.pixelHandle);
    const auto many = toBus(sent);
    for (int i = 0; i < 20; ++i)
        EXPECT_EQ(peer.callSession(session, "QueueBuf", int32_t{0}, many),
                  number(VppError::VPP_ERR_RESOURCES));
    return "VPP_ERR_RESOURCES";
}

// Every setCtrlVppMode but the healthy client's is slow (see the test).
std::string floodsBehindASlowCall(const std::string& bus) {
    HostilePeer peer(bus);
    const std::string session = peer.newOpenSession(kSmall);
    // Slow for longer than the flood takes on any machine; the session's end cuts it short.
    for (int i = 0; i < 64; ++i)
        peer.castSession(session, "SetCtrlVppMode", int32_t{2});
    for (int i = 0; i < 2000; ++i)
        peer.castSession(session, "Drain");
    // Refused, or, on a busy machine, not answered in time behind the answers to all the others.
    EXPECT_NE(peer.callSession(session, "Drain"), number(VppError::VPP_OK));
    return "VPP_ERR_RESOURCES at once beyond " + std::to_string(kClientBudget.calls) + " that wait";
}

std::string endsSessionsThatHang(const std::string& bus) {
    HostilePeer peer(bus);
    for (int i = 0; i < 16; ++i) {
        const std::string session = peer.newOpenSession(kSmall);
        for (int calls = 0; calls < 4; ++calls)
            peer.castSession(session, "SetCtrlVppMode", int32_t{2});
        peer.castSession(session, "Release");
    }
    EXPECT_NE(peer.newSession(), host::vppd::kNoSession);
    return "the next session opens at once";
}

class VppdPeers : public ResourceTest {
  protected:
    // With a service whose setCtrlVppMode is slow from the second call on: the healthy client,
    // which is there first, makes one.
    const host::PrivateBus bus{{"--fault", "setCtrlVppMode=late:700@2+"}};
    host::RemoteVppService service{bus.address()};
};

struct PeerRow {
    const char* name;
    Attack attack;
};
constexpr PeerRow kPeerRows[] = {
    {"queues buffers on another's session", queuesOnAnothersSession},
    {"ends and releases another's session", endsAnothersSession},
    {"forges callbacks to another", forgesCallbacks},
    {"pulls memory away", pullsMemoryAway},
    {"opens sessions without end", opensSessionsWithoutEnd},
    {"queues buffers without end", queuesBuffersWithoutEnd},
    {"sends records of 250 descriptors", sendsManyDescriptors},
    {"floods a session behind a slow call", floodsBehindASlowCall},
    {"ends sessions that hang", endsSessionsThatHang},
};

// Plays frames while the attack is repeated beside them; the median of their latencies.
double playThrough(Healthy& healthy, const PeerRow& row, const std::string& address,
                   std::string* told) {
    std::atomic<bool> over{false};
    std::thread attacker([&] {
        do {
            *told = row.attack(address);
        } while (!over);
    });
    const double took = healthy.millisecondsFor(kFrames);
    over = true;
    attacker.join();
    return took;
}

void writeRows(const std::string& rows);

TEST_F(VppdPeers, DoTheirWorstAndHarmNobody) {
    LogCapture quiet;
    Healthy healthy;
    healthy.start();
    const auto pid = bus.servicePid();
    std::ostringstream rows;
    for (const PeerRow& row : kPeerRows) {
        SCOPED_TRACE(row.name);
        const double alone = healthy.millisecondsFor(kFrames);
        std::string told;
        const double beside = playThrough(healthy, row, bus.address(), &told);
        rows << "| " << row.name << " | " << told << " | loses nothing | " << std::fixed
             << std::setprecision(1) << beside / alone << " |\n";
        std::cout << row.name << ": " << alone << " ms alone, " << beside << " ms beside\n";
    }
    healthy.stop();
    EXPECT_EQ(bus.servicePid(), pid) << "the service has died";
    EXPECT_EQ(service.deaths(), 0U);
    if (!HasFailure()) writeRows(rows.str());
}

// Renews the section of the page that is this test's.
void writeRows(const std::string& rows) {
    const char* folder = getenv("QOZ_WRITE_DOCS");
    if (folder == nullptr) return;
    const std::string name = std::string(folder) + "/faults.md";
    std::ostringstream page;
    page << std::ifstream(name).rdbuf();
    const std::string heading = "\n## Hostile peers on the same bus\n";
    std::ofstream(name) << page.str().substr(0, page.str().find(heading)) << heading << R"(
Written by `tests/vppd_peers_test.cpp` in the same way. Each peer is a connection of its own to the bus of
one service, and does its worst over and over while a client beside it plays 40 frames. The last column
is the median of that client's latencies, from `process` to the frame, against its own median just
before; of one run, on two cores that had other work to do. What protects a client, and what does not, is
in [isolation](isolation.md).

| a peer | is told | the client beside it | latency |
|---|---|---|---|
)" << rows;
}

// What the service has mapped of the memory of graphic buffers.
size_t buffersMappedBy(pid_t process) {
    std::ifstream maps("/proc/" + std::to_string(process) + "/maps");
    size_t count = 0;
    for (std::string line; std::getline(maps, line);)
        count += line.find("/memfd:graphic-buffer") != std::string::npos ? 1 : 0;
    return count;
}

// A session that is used as no component uses it: with new buffers for every frame.
TEST_F(VppdPeers, MappingsEndWithTheirBuffers) {
    const auto recorder = ndk::SharedRefBase::make<SessionRecorder>();
    const auto session = newSession();
    VppError result = VppError::VPP_ERR;
    session->initSession(0, recorder, &result);
    for (const VppPort side : {VppPort::INPUT, VppPort::OUTPUT})
        session->setParameter(side, port(kSize), &result);
    session->open(&result);
    ASSERT_EQ(result, VppError::VPP_OK);
    const pid_t pid = bus.servicePid().value_or(0);
    size_t most = 0;
    for (int n = 1; n <= 60; ++n) {
        const auto timestamp = static_cast<uint64_t>(n) * 1000;
        session->queueBuf(VppPort::OUTPUT, record(frame(kSize), n | kOutputBit, 1), &result);
        session->queueBuf(VppPort::INPUT, record(frame(kSize), n, timestamp), &result);
        ASSERT_TRUE(recorder->await("output " + std::to_string(n) + " "));
        most = std::max(most, buffersMappedBy(pid));
    }
    EXPECT_LE(most, 3U) << "more than a source, its reference and an output";
    session->close(&result);
    EXPECT_EQ(buffersMappedBy(pid), 0U);
}

// A limit of the process, lowered and put back.
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

TEST_F(VppdPeers, AClientOutOfDescriptorsGoesOnAfterwards) {
    LogCapture quiet;
    LiveClient client;
    ASSERT_TRUE(client.start(kW, kH, kDouble));
    for (int n = 0; n < 4; ++n)
        ASSERT_TRUE(client.send(kW, kH, n * kFrameNs));
    {
        const Limit none(RLIMIT_NOFILE, 3);
        const auto end = Clock::now() + 500ms;
        for (int n = 4; Clock::now() < end; ++n) {
            client.send(kW, kH, n * kFrameNs);
            std::this_thread::sleep_for(10ms);
        }
        const auto start = Clock::now();
        client.vpp->flushsync();
        EXPECT_LT(Clock::now() - start, host::vppd::kCallLimit);
    }
    client.disable();
    EXPECT_EQ(client.account(), "");
    EXPECT_EQ(service.deaths(), 0U);
}

TEST_F(VppdPeers, AClientOutOfThreadsIsToldSo) {
    LogCapture quiet;
    const auto session = newSession();
    pthread_attr_t before, huge;
    pthread_getattr_default_np(&before);
    pthread_attr_init(&huge);
    pthread_attr_setstacksize(&huge, size_t{1} << 46);  // that no address space holds
    pthread_setattr_default_np(&huge);
    VppError result = VppError::VPP_OK;
    const auto recorder = ndk::SharedRefBase::make<SessionRecorder>();
    EXPECT_TRUE(session->initSession(0, recorder, &result).isOk());
    pthread_setattr_default_np(&before);
    EXPECT_EQ(result, VppError::VPP_ERR_RESOURCES);
    EXPECT_TRUE(session->initSession(0, recorder, &result).isOk());
    EXPECT_EQ(result, VppError::VPP_OK);
    pthread_attr_destroy(&huge);
    pthread_attr_destroy(&before);
}

// Asks for the death notice of a session's binder, and counts it.
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
    const auto start = Clock::now();
    kill(bus.servicePid().value_or(0), SIGKILL);
    EXPECT_TRUE(eventually([&] { return one.count == 1 && two.count == 1; }));
    EXPECT_LT(Clock::now() - start, 1s);
    VppError result = VppError::VPP_PENDING;
    EXPECT_FALSE(first->open(&result).isOk());
    const auto third = newSession();
    ASSERT_NE(third, nullptr) << "the service is started anew";
    const DeathNotices three(*third);
    EXPECT_EQ(one.count + two.count + three.count, 2);
}

// A message that this process has no room for ends its connection, and with it its sessions.
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

// A program for a bus to start: the daemon, for which one thread cannot be had. How it ended is in
// the file.
std::string withoutThread(int number, const std::filesystem::path& folder) {
    const std::string script = folder / "vppd";
    std::ofstream(script) << "#!/bin/sh\nLD_PRELOAD=" QOZ_FAIL_THREAD_LIBRARY " QOZ_FAIL_THREAD="
                          << number << " " QOZ_VPPD " \"$@\"\necho $? >> " << folder.string()
                          << "/ends\n";
    std::filesystem::permissions(script, std::filesystem::perms::owner_all);
    return script;
}

bool playsOneFrame() {
    LiveClient client;
    if (!client.start(kW, kH, kDouble)) return false;
    EXPECT_TRUE(client.send(kW, kH, 0));
    EXPECT_TRUE(client.waitForTimestamp(0));
    client.stop();
    EXPECT_EQ(client.account(), "");
    return true;
}

// Those of its start may end it with a message; no other ends it, and the next client is served.
TEST(VppdThreads, TheOneThatCannotBeHadEndsNoService) {
    if (kSanitized) GTEST_SKIP() << "a sanitizer wants to be loaded first";
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

// No side so long that a size computed from it wraps.
TEST(GraphicBuffers, OfSizesWhoseProductWrapsHaveNoMemory) {
    const std::pair<uint32_t, uint32_t> sizes[] = {{UINT32_MAX, UINT32_MAX},
                                                   {2147437308U, 2147529989U},
                                                   {UINT32_MAX, 1},
                                                   {1U << 31, 1U << 31}};
    for (const auto& [width, height] : sizes)
        for (const int32_t format : {kRgba, kNv12})
            EXPECT_NE(buffer(width, height, format)->initCheck(), android::OK)
                << width << "x" << height;
}

}  // namespace
}  // namespace qoz::test
