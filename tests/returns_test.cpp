// SPDX-License-Identifier: Apache-2.0
// Tests with a service that returns buffers incorrectly: with another timestamp, twice, too late or
// not at all. Memory that the service still uses must not be used for another frame, and no memory
// may be lost permanently.
#include <unistd.h>

#include <atomic>
#include <thread>

#include "support/Fixture.h"

namespace qoz::test {
namespace {

class Returns : public ComponentTest {
  protected:
    void giveBack(const Queued& sent) { session().returnInput(sent.cookie, sent.timestamp); }
};

TEST_F(Returns, ChangedTimestampsCostNoBuffers) {
    enableAndConfig(kW, kH, kTwice);
    const auto source = frame();
    uint64_t live = 0;
    for (int n = 0; n < 600; ++n) {
        ASSERT_EQ(processSource(n % 4, source, (n + 1) * 1'000'000), 0);
        const Queued sent = inputs().back();
        session().returnInput(sent.cookie, sent.timestamp + 1);
        if (n == 299) live = host::counters().graphicBuffersLive;
    }
    EXPECT_LE(host::counters().graphicBuffersLive, live);
}

// A paused game may send several frames with the same timestamp.
TEST_F(Returns, FramesOfOneMicrosecondKeepTheirMemory) {
    startPlain();
    const auto source = frame();
    const auto inode = [this] { return inputs().back().inode; };
    ASSERT_EQ(processSource(0, source, 5000), 0);
    const auto first = inode();
    ASSERT_EQ(processSource(1, source, 5000), 0);
    ASSERT_NE(inode(), first);
    session().returnInput(0x10001, 5);
    ASSERT_EQ(processSource(2, source, 6000), 0);
    EXPECT_NE(inode(), first) << "the service still reads it";
    session().returnInput(0x10000, 5);
    ASSERT_EQ(processSource(3, source, 7000), 0);
    EXPECT_EQ(inode(), first) << "free once all of its key is back";
}

TEST_F(Returns, ATargetBesideASourceWithoutASlotComesBack) {
    startPlain();
    ASSERT_EQ(process({{-1, frame(), {}, 5000, {}}, {40, nv12(), {}, 0, {}}}), 0);
    ASSERT_EQ(inputs().size(), 1);
    session().returnInput(40, 5);
    EXPECT_EQ(client.done(), (std::vector<Done>{{0, 40, 0, 0}}));
}

// After a failed flush the session remains open beyond disable(), and there is no worker. Output
// buffers must still be returned.
TEST_F(Returns, OutputsOfASessionLeftInErrorComeBack) {
    startPlain();
    peer().setWaitLimit(std::chrono::milliseconds(50));
    session().silent = {"flush1"};
    ASSERT_EQ(processOutput(3, nv12()), 0);
    vpp->flushsync();
    ASSERT_EQ(vpp->state(), VppComponent::ERROR);
    vpp->disable();
    session().returnOutput(static_cast<int32_t>(0x80000003), 5, 1);
    EXPECT_EQ(client.done(), (std::vector<Done>{{0, 3, 1, 5}}));
}

// After disable() there is no worker. What the service still returns is delivered at once, and what
// is in the queue for another reason is delivered by the next session's worker.
TEST_F(Returns, OutputsOfAClosedSessionComeBack) {
    startPlain();
    ASSERT_EQ(processOutput(3, nv12()), 0);
    const auto previous = session().callbackObject();
    vpp->disable();
    vpp::VppBuffer returned;
    returned.cookie = static_cast<int32_t>(0x80000003);
    returned.timestamp = 5;
    vpp::VppError result = vpp::VppError::VPP_OK;
    (void)previous->outputBufferDone(returned, &result);
    EXPECT_EQ(client.done(), (std::vector<Done>{{0, 3, 0, 5}}));
    ASSERT_TRUE(peer().store(4, vpp::VppBuffer{}));
    ASSERT_TRUE(enable());
    vpp->disable();  // the worker makes its last run
    EXPECT_EQ(client.done(), (std::vector<Done>{{0, 3, 0, 5}, {0, 4, 0, 0}}));
}

// Slots are reused, so a repeated return may name a slot under which another frame is outstanding.
TEST_F(Returns, ARepeatedReturnFreesNoOtherFrame) {
    startPlain();
    const auto source = frame();
    ASSERT_EQ(processSource(0, source, 1'000'000), 0);
    const Queued first = inputs()[0];
    giveBack(first);
    ASSERT_EQ(processSource(0, source, 2'000'000), 0);
    giveBack(first);
    ASSERT_EQ(processSource(0, source, 3'000'000), 0);
    EXPECT_NE(inputs()[1].inode, inputs()[2].inode) << "the service still reads the second frame";
    EXPECT_TRUE(peer().freeYuv().empty());
}

// The same holds for a frame that the service has refused and nevertheless returns.
TEST_F(Returns, ARefusedFrameThatComesBackFreesNoOther) {
    startPlain();
    const auto source = frame();
    session().results["queueBuf0"] = vpp::VppError::VPP_ERR_HW;
    ASSERT_EQ(processSource(0, source, 1'000'000), 0);
    session().results.clear();
    ASSERT_EQ(processSource(0, source, 2'000'000), 0);
    giveBack(inputs()[0]);
    ASSERT_EQ(processSource(1, source, 3'000'000), 0);
    EXPECT_NE(inputs()[1].inode, inputs()[2].inode) << "the service still reads the second frame";
}

// A target that the client supplied has no entry in the pool of targets.
TEST_F(Returns, AClientsTargetKeepsNoEntryOfItsTimestampInUse) {
    startPlain();
    ASSERT_EQ(processSource(0, frame(), 5000), 0);
    ASSERT_EQ(process({{1, frame(), {}, 5000, {}}, {40, nv12(), {}, 0, {}}}), 0);
    for (const Queued& sent : inputs())
        giveBack(sent);
    EXPECT_EQ(peer().freeYuv(), (std::set<uint64_t>{5}));
}

// The pool keeps the entry of the earlier frame under the same timestamp, so it must not remain
// free.
TEST_F(Returns, ATimestampThatComesAgainTakesItsEntryBackIntoUse) {
    enableAndConfig(kW, kH, kTwice);
    for (int n = 1; n <= 3; ++n)
        ASSERT_EQ(processSource(n, frame(), n * 1'000'000), 0);
    for (const Queued& sent : inputs())
        giveBack(sent);
    const auto kept = peer().extradataMap().at(3000);
    ASSERT_EQ(processSource(4, frame(), 3'000'000), 0);
    const Queued again = inputs().back();
    EXPECT_FALSE(peer().freeExtradata().contains(3000));
    for (int n = 4; n <= 6; ++n) {
        ASSERT_EQ(processSource(n + 1, frame(), n * 1'000'000), 0);
        EXPECT_NE(std::get<0>(peer().extradataMap().at(n * 1000)), std::get<0>(kept));
    }
    giveBack(again);
    EXPECT_TRUE(peer().freeExtradata().contains(3000));
    // If the service refuses the frame, the entry is free again.
    session().results["queueBuf0"] = vpp::VppError::VPP_ERR_HW;
    ASSERT_EQ(processSource(8, frame(), 3'000'000), 0);
    EXPECT_TRUE(peer().freeExtradata().contains(3000));
}

// A late output of the first frame looks like one of the second, which the service still reads.
TEST_F(Returns, ALateOutputOfARepeatedTimestampFreesNothing) {
    for (const int64_t nanoseconds : {0, 5'000'000}) {
        SCOPED_TRACE(nanoseconds);
        renew();
        enableAndConfig(kW, kH, kTwice);
        const auto key = static_cast<uint64_t>(nanoseconds / 1000);
        const auto output = [&] {
            session().returnOutput(static_cast<int32_t>(0x80000001), key, 1);
            return peer().freeExtradata().contains(key);
        };
        ASSERT_EQ(processSource(0, frame(), nanoseconds), 0);
        EXPECT_TRUE(output()) << "the only frame of its timestamp";
        giveBack(inputs()[0]);
        ASSERT_EQ(processSource(1, frame(), nanoseconds), 0);
        EXPECT_FALSE(output());
        giveBack(inputs()[1]);
        EXPECT_TRUE(peer().freeExtradata().contains(key));
    }
}

TEST_F(Returns, StrayReturnsMakeNoRoomForMoreFrames) {
    startPlain();
    const auto source = frame();
    int taken = 0;
    for (int n = 1; n <= 150; ++n) {
        taken += processSource(n % 4, source, n * 1'000'000) == 0 ? 1 : 0;
        session().returnInput(-1, 5);
    }
    EXPECT_EQ(taken, 128);
}

// A service may return a frame with the timestamp of another one. Both entries are then free,
// unless an outstanding frame uses them.
TEST_F(Returns, AReturnFreesTheTimestampThatItCarries) {
    startPlain();
    ASSERT_EQ(processSource(0, frame(), 1'000'000), 0);
    peer().yuvMap()[2000] = nv12();
    session().returnInput(inputs()[0].cookie, 2000);
    EXPECT_EQ(peer().freeYuv(), (std::set<uint64_t>{1000, 2000}));
}

// After a flush the service holds no buffers. Those that it has not returned are lost, and a later
// return of one of them frees nothing.
TEST_F(Returns, AFlushForgetsTheFramesThatWereLost) {
    startPlain();
    const auto source = frame();
    for (int n = 1; n <= 128; ++n)
        ASSERT_EQ(processSource(n % 4, source, n * 1'000'000), 0);
    ASSERT_EQ(processSource(0, source, 200'000'000), 1);
    const Queued late = inputs()[3];
    vpp->flushsync();
    ASSERT_EQ(vpp->state(), VppComponent::IDLE);
    ASSERT_EQ(processSource(0, source, 201'000'000), 0);
    const auto inService = inputs().back().inode;
    giveBack(late);
    ASSERT_EQ(processSource(0, source, 202'000'000), 0);
    EXPECT_NE(inputs().back().inode, inService);
}

// Only returns reduce the counts, so a new session begins with the counts of the previous one. It
// must nevertheless take as many frames.
TEST_F(Returns, CountsOutlastTheSessionAndRefuseNoFrame) {
    startPlain();
    const auto source = frame();
    for (int n = 1; n <= 3; ++n)
        ASSERT_EQ(processSource(n, source, n * 1'000'000), 0);
    vpp->disable();
    ASSERT_TRUE(enable());
    EXPECT_EQ(peer().inVpp().first, 3U);
    vpp->config(kW, kH, kRgba, kTwice, true);
    ASSERT_TRUE(vpp->isInputPortEnabled(kW, kH, kRgba));
    int taken = 0;
    for (int n = 1; n <= 130; ++n)
        taken += processSource(n % 4, source, n * 1'000'000) == 0 ? 1 : 0;
    EXPECT_EQ(taken, 128);
}

// The worker delivers while disable() waits for it. An output buffer that has waited for both must
// not be queued with the session that is left.
TEST_F(Returns, NoOutputIsQueuedAfterDisable) {
    startPlain();
    peer().setWaitLimit(std::chrono::milliseconds(50));
    session().silent = {"flush1"};
    vpp->flushsync();
    ASSERT_EQ(vpp->state(), VppComponent::ERROR);
    peer().setWaitLimit(kSoon);
    Gate delivery;
    ASSERT_EQ(processOutput(3, nv12()), 0);
    holdDelivery(3, delivery);
    session().returnOutput(static_cast<int32_t>(0x80000003), 5, 1);
    delivery.inside.wait();
    std::thread disabler([this] { vpp->disable(); });
    ASSERT_TRUE(eventually([this] {
        return log.count("Start exiting VPP OBD thread after vpp instance release ...") != 0;
    }));
    std::atomic<pid_t> id{0};
    int32_t result = 0;
    std::thread other([&] {
        id = gettid();
        result = processOutput(4, nv12());
    });
    ASSERT_TRUE(eventually([&] { return id != 0 && isAsleep(id); }));
    delivery.release.count_down();
    disabler.join();
    other.join();
    EXPECT_EQ(result, 1);
    EXPECT_EQ(queuedOn(vpp::VppPort::OUTPUT).size(), 1);
}

// No callback of a session is in progress when disable() returns.
TEST_F(Returns, DisableWaitsForACallbackUnderWay) {
    startPlain();
    ASSERT_EQ(process({{1, frame(), {}, 9'000'000, {}}, {40, nv12(), {}, 0, {}}}), 0);
    Gate gate;
    std::atomic<bool> left{false};
    client.onDone = [&](const Done& done) {
        if (done.slot != 40) return;
        gate.hold();
        left = true;
    };
    std::thread binder([&, session = &session()] { session->returnInput(40, 9000); });
    gate.inside.wait();
    // The callback continues when disable() has ended the worker.
    std::thread releaser([&] {
        EXPECT_TRUE(eventually([&] { return log.count("component thread is terminated") == 1; }));
        gate.release.count_down();
    });
    vpp->disable();
    EXPECT_TRUE(left);
    binder.join();
    releaser.join();
}

}  // namespace
}  // namespace qoz::test
