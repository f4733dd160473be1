// SPDX-License-Identifier: Apache-2.0
// Tests of the returns of the service and of the output worker that delivers them to the client.
#include <atomic>
#include <thread>

#include "pipeline/Cookie.h"
#include "support/Fixture.h"

namespace qoz::test {
namespace {

namespace cookie = android::cookie;

class Delivery : public ComponentTest {
  protected:
    void SetUp() override {
        ComponentTest::SetUp();
        enableAndConfig(64, 64, {1, 0, 1, 0});
    }

    // Adds an entry to both pools, as for a frame that the VPP holds.
    void inFlight(uint64_t timestamp) {
        peer().yuvMap()[timestamp] = buffer(16, 16, kNv12);
        peer().extradataMap()[timestamp] = {nullptr, nullptr, buffer(16, 16, kNv12)};
    }

    void returnOutput(uint32_t slot, uint64_t timestamp, uint32_t filled = 1) {
        session().returnOutput(cookie::forOutput(slot), timestamp, filled);
    }
};

TEST_F(Delivery, EachReturnGoesWhereItBelongs) {
    struct Row {
        const char* what;
        bool onInputPort;
        int64_t cookie;
        std::vector<Done> told;
    };
    constexpr uint64_t kTs = 900;
    const auto pooled = cookie::forInput(2, true);
    const auto noRecord = cookie::forInput(70, false);  // a client's slot without a record
    for (const Row& row : {
             Row{"pooled frame", true, pooled, {}},
             Row{"client's frame", true, noRecord, {{0, 70, 0, 0}}},
             Row{"output", false, cookie::forOutput(5), {{0, 5, 1, kTs}}},
             Row{"bypassed client's frame", false, cookie::forInput(6, false), {{0, 6, 1, kTs}}},
             Row{"bypassed frame without a record", false, noRecord, {{0, 70, 0, 0}}},
             Row{"bypassed pooled frame", false, pooled, {}},
             Row{"unknown id", false, cookie::forOutput(64), {}},
         }) {
        SCOPED_TRACE(row.what);
        client.clear();
        peer().freeYuv().clear();
        peer().freeExtradata().clear();
        inFlight(kTs);
        for (int i = 0; i < (row.told.empty() ? 2 : 1); ++i) {  // a repeated return frees once
            row.onInputPort ? session().returnInput(row.cookie, kTs)
                            : session().returnOutput(row.cookie, kTs, 8192);
        }
        EXPECT_TRUE(client.waitFor(row.told.size()));
        EXPECT_EQ(client.done(), row.told);
        EXPECT_EQ(peer().freeYuv().contains(kTs), row.cookie == pooled);
        EXPECT_EQ(peer().freeExtradata(), (std::set<uint64_t>{kTs}));
    }
    EXPECT_EQ(log.errors("onVppOBD: vpp returned unknown buffer id 64"), 2);
    EXPECT_EQ(peer().inVpp(), std::pair(0U, 0U)) << "never below zero";
}

// Large lengths and timestamps are negative numbers in a record with signed members, and must still
// be delivered correctly.
TEST_F(Delivery, LengthsAndTimestampsUseTheirWholeRange) {
    constexpr uint64_t kLate = (1ULL << 63) + 5;
    inFlight(kLate);
    returnOutput(9, kLate, 1U << 31);
    EXPECT_TRUE(client.waitFor(1));
    EXPECT_EQ(client.done(), (std::vector<Done>{{0, 9, 1, kLate}}));
    EXPECT_EQ(peer().freeExtradata(), (std::set<uint64_t>{kLate}));
}

TEST_F(Delivery, CountersFollowThePortABufferWasQueuedOn) {
    const auto output = buffer(64, 64, kNv12);
    VppComponentPeer::SideBuffers none;
    ASSERT_EQ(processOutput(1, output), 0);
    ASSERT_TRUE(peer().queueBuffer(output, none, 2, 10, true));
    session().returnOutput(cookie::forInput(2, false), 10, 1);  // bypassed
    EXPECT_EQ(peer().inVpp(), std::pair(0U, 1U));
    session().returnOutput(cookie::forOutput(1), 10, 1);
    EXPECT_EQ(peer().inVpp(), std::pair(0U, 0U));
}

TEST_F(Delivery, EmptyEntriesAreErased) {
    peer().yuvMap()[7] = nullptr;
    peer().extradataMap()[7] = {};
    session().returnInput(cookie::forInput(1, true), 7);
    EXPECT_TRUE(peer().yuvMap().empty() && peer().extradataMap().empty());
    EXPECT_TRUE(peer().freeYuv().empty() && peer().freeExtradata().empty());
    const std::string never = "Should NOT enter here, we should NOT push ";
    EXPECT_EQ(log.errors(never + "any empty buffer"), 1);
    EXPECT_EQ(log.errors(never + "all empty extradata buffers!!"), 1);
}

// While the client blocks the worker in a callback, the service's returns do not wait, none is
// lost, and their order is kept.
TEST_F(Delivery, ReturnsDoNotWaitForTheClient) {
    Gate held;
    holdDelivery(0, held);
    returnOutput(0, 1);
    held.inside.wait();
    for (const uint32_t slot : {1, 2, 3})
        returnOutput(slot, slot, slot == 2 ? 0 : 1);
    EXPECT_EQ(peer().queued(), 3);
    held.release.count_down();
    ASSERT_TRUE(client.waitFor(4));
    EXPECT_EQ(client.done(),
              (std::vector<Done>{{0, 0, 1, 1}, {0, 1, 1, 1}, {0, 2, 0, 2}, {0, 3, 1, 3}}));
    EXPECT_EQ(log.count("queueOBD: 2 VPPOBD buffer in Queue, get buffer, slot 1"), 1);
}

// A delivery request does not replace a command that was posted before it: both are carried out.
TEST_F(Delivery, ARequestOverwritesNoCommand) {
    Gate held;
    holdDelivery(0, held);
    returnOutput(0, 1);
    held.inside.wait();
    peer().storeCommand(4);
    returnOutput(1, 2);
    held.release.count_down();
    ASSERT_TRUE(
        eventually([this] { return log.errors("VppOBDworkerThread: Unrecognized cmd 4") == 1; }));
    EXPECT_TRUE(client.waitFor(2));
    peer().storeCommand(3);  // does nothing while the queue is empty
    returnOutput(2, 3);
    EXPECT_TRUE(client.waitFor(3));
}

// At Exit the worker also delivers buffers for which no delivery has been requested yet.
TEST_F(Delivery, WhatIsQueuedAtExitStillReachesTheClient) {
    ASSERT_TRUE(peer().store(1, vpp::VppBuffer{}));
    vpp->disable();
    EXPECT_EQ(client.done().size(), 1);
}

TEST_F(Delivery, WithoutACallbackBuffersAreDropped) {
    vpp->disable();
    ASSERT_TRUE(vpp->enable("silent", nullptr, false));
    returnOutput(9, 1);
    session().returnInput(cookie::forInput(9, false), 1);
    EXPECT_TRUE(eventually([this] { return peer().queued() == 0; }));
}

// Buffers are returned just when the worker has found its queue empty and is about to sleep. Each
// round waits for its own delivery, so that a single lost wake-up fails the test.
TEST_F(Delivery, NoWakeUpIsLost) {
    constexpr size_t kRounds = 20000;
    for (size_t round = 1; round <= kRounds; ++round) {
        returnOutput(round % 64, round);
        ASSERT_TRUE(client.waitFor(round)) << "round " << round;
    }
}

// The same moment, made deterministic: the worker checks for work and goes to sleep under the lock
// that a request takes. The test holds that lock, so that the request has to wait.
TEST_F(Delivery, ARequestDuringTheLastLookWakesTheWorker) {
    std::atomic<bool> returned{false};
    std::thread binder;
    {
        const auto look = peer().holdLook();
        binder = std::thread([&] {
            returnOutput(0, 1);
            returned = true;
        });
        ASSERT_TRUE(eventually([this] { return peer().queued() == 1; }));
        for (int i = 0; i < 1000 && !returned; ++i)
            std::this_thread::yield();
    }
    binder.join();
    EXPECT_TRUE(client.waitFor(1));
}

}  // namespace
}  // namespace qoz::test
