// SPDX-License-Identifier: Apache-2.0
// Tests that a hostile client on the bus of a service cannot harm another client of that service.
#include <host/vppservice/Quota.h>
#include <sys/mman.h>

#include <algorithm>
#include <cstdlib>
#include <fstream>
#include <iomanip>
#include <sstream>

#include "support/VppdPeers.h"

namespace qoz::test {
namespace {

using client::LiveClient;
using host::vppd::toBus;
using host::vppservice::kClientBudget;
using Clock = std::chrono::steady_clock;

constexpr int kFrames = kSlow ? 10 : 40;

// The path of the session of a service's first client.
const std::string kVictim = std::string(host::vppd::kSessionFolder) + "1";

// A client that obeys all rules and measures the latency of its frames.
class Healthy {
  public:
    Healthy() {
        mClient.onFrame = [this](const auto&, const auto& returned) {
            const auto sent = mSent.find(returned.timestamp);
            if (sent != mSent.end()) mTook.push_back(returned.at - sent->second);
        };
    }
    void start() { ASSERT_TRUE(mClient.start(kW, kH, kDouble)); }

    // Plays this many frames, each after the previous one has come out, and returns the median of
    // their latencies.
    double millisecondsFor(int frames) {
        mTook.clear();
        for (int i = 0; i < frames; ++i, ++mNumber) {
            const auto timestamp = static_cast<uint64_t>(mNumber * kFrameNs / 1000);
            mSent[timestamp] = Clock::now();
            EXPECT_TRUE(mClient.send(kW, kH, mNumber * kFrameNs));
            EXPECT_TRUE(mClient.waitForTimestamp(timestamp));
            Watchdog::feed();
        }
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
    std::map<uint64_t, Clock::time_point> mSent;
    std::vector<Clock::duration> mTook;
    int64_t mNumber = 0;
    LiveClient mClient;
};

// What a peer does; it is a connection of its own each time. Returns what became of it.
using Attack = std::string (*)(HostilePeer& peer);

// No attack, for comparison with the other rows: it only uses a processor. A machine with two
// processors then has one for the client, the bus and the service together.
std::string takesAProcessor(HostilePeer&) {
    const auto end = Clock::now() + std::chrono::milliseconds(20);
    while (Clock::now() < end) {
    }
    return "nothing";
}

std::string queuesOnAnothersSession(HostilePeer& peer) {
    const auto mine = frame(kSize);
    for (const int32_t side : {0, 1}) {
        const auto sent = toBus(record(mine, side == 1 ? 3 | kOutputBit : 3, 1));
        EXPECT_EQ(peer.callSession(kVictim, "QueueBuf", side, sent), kDenied);
    }
    return "refused, and logged";
}

std::string endsAnothersSession(HostilePeer& peer) {
    for (const char* method : {"Close", "TerminateSession", "Drain", "Open"})
        EXPECT_EQ(peer.callSession(kVictim, method), kDenied) << method;
    EXPECT_EQ(peer.callSession(kVictim, "Flush", int32_t{0}), kDenied);
    peer.castSession(kVictim, "Release");
    return "refused, and logged";
}

std::string forgesCallbacks(HostilePeer& peer) {
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

// The service accepts only memory that cannot be truncated afterwards.
std::string truncatesItsMemory(HostilePeer& peer) {
    const std::string session = peer.newOpenSession(kSize);
    const auto good = frame(kSize);
    VppBuffer open = record(good, 1 | kOutputBit, 1);
    const int fd = memfd_create("hostile", MFD_CLOEXEC | MFD_ALLOW_SEALING);
    EXPECT_EQ(ftruncate(fd, static_cast<off_t>(sizeOf(good))), 0);
    open.pixelHandle.fds[0].set(fd);
    EXPECT_EQ(peer.callSession(session, "QueueBuf", int32_t{1}, toBus(open)),
              number(VppError::VPP_ERR_PARAM));
    EXPECT_EQ(ftruncate(fd, 0), 0);
    EXPECT_EQ(
        peer.callSession(session, "QueueBuf", int32_t{1}, toBus(record(good, 2 | kOutputBit, 1))),
        number(VppError::VPP_OK));
    EXPECT_NE(ftruncate(good->handle->data[0], 0), 0) << "what is queued can be truncated";
    return "memory that is not sealed is refused; sealed memory stays";
}

std::string opensSessionsWithoutEnd(HostilePeer& peer) {
    size_t made = 0;
    while (made <= kClientBudget.sessions && peer.newSession() != host::vppd::kNoSession)
        ++made;
    EXPECT_EQ(made, kClientBudget.sessions);
    return "none beyond " + std::to_string(made);
}

std::string queuesBuffersWithoutEnd(HostilePeer& peer) {
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

std::string sendsManyDescriptors(HostilePeer& peer) {
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

// A setCtrlAis call is slow; see VppdPeers::bus.
void makeSlowCalls(HostilePeer& peer, const std::string& session, int count) {
    vpp::VppCtrlAis ais;
    ais.mode = 2;
    for (int i = 0; i < count; ++i)
        peer.castSession(session, "SetCtrlAis", toBus(ais));
}

std::string floodsBehindASlowCall(HostilePeer& peer) {
    const std::string session = peer.newOpenSession(kSmall);
    // Together the slow calls take longer than the flood on any machine. The end of the session
    // ends them early.
    makeSlowCalls(peer, session, 64);
    for (int i = 0; i < 2000; ++i)
        peer.castSession(session, "Drain");
    // The call is refused. On a busy machine it may also not be answered in time, because the
    // answers to all other calls are sent first.
    EXPECT_NE(peer.callSession(session, "Drain"), number(VppError::VPP_OK));
    return "VPP_ERR_RESOURCES at once beyond " + std::to_string(kClientBudget.calls) + " that wait";
}

std::string endsSessionsThatHang(HostilePeer& peer) {
    for (int i = 0; i < 16; ++i) {
        const std::string session = peer.newOpenSession(kSmall);
        makeSlowCalls(peer, session, 4);
        peer.castSession(session, "Release");
    }
    EXPECT_NE(peer.newSession(), host::vppd::kNoSession);
    return "the next session opens at once";
}

// One row of the table of attacks in the documentation.
struct PeerRow {
    const char* name;
    Attack attack;
};
constexpr PeerRow kPeerRows[] = {
    {"takes a processor, and no part of the bus", takesAProcessor},
    {"queues buffers on another's session", queuesOnAnothersSession},
    {"ends and releases another's session", endsAnothersSession},
    {"forges callbacks to another", forgesCallbacks},
    {"truncates its memory", truncatesItsMemory},
    {"opens sessions without end", opensSessionsWithoutEnd},
    {"queues buffers without end", queuesBuffersWithoutEnd},
    {"sends records of 250 descriptors", sendsManyDescriptors},
    {"floods a session behind a slow call", floodsBehindASlowCall},
    {"ends sessions that hang", endsSessionsThatHang},
};

// Plays frames while another thread repeats the attack. Returns the median of their latencies.
double playThrough(Healthy& healthy, const PeerRow& row, const std::string& address,
                   std::string* told) {
    std::atomic<bool> over{false};
    std::thread attacker([&] {
        do {
            HostilePeer peer(address);
            *told = row.attack(peer);
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

// Replaces this test's section of the page.
void writeRows(const std::string& rows) {
    const char* folder = getenv("QOZ_WRITE_DOCS");
    if (folder == nullptr) return;
    const std::string name = std::string(folder) + "/faults.md";
    std::ostringstream page;
    page << std::ifstream(name).rdbuf();
    const std::string heading = "\n## Hostile peers on the same bus\n";
    std::ofstream(name) << page.str().substr(0, page.str().find(heading)) << heading << R"(
Written by `tests/vppd_peers_test.cpp` in the same way. Each peer is a connection of its own to the bus of
one service, and repeats its attack while a client beside it plays 40 frames. The last column divides the
median of that client's latencies, from `process` to the frame, by its median just before the attack. It
was measured in one run, on two processors. The first peer only occupies a processor, so its row shows
the cost of a busy machine. What protects a client, and what
does not, is in [isolation](isolation.md).

| peer | answer of the service | the client beside it | latency |
|---|---|---|---|
)" << rows;
}

}  // namespace
}  // namespace qoz::test
