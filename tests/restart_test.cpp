// SPDX-License-Identifier: Apache-2.0
// Tests of repeated starts of a component, by config() and by disable() and enable(), with the same
// settings and with others.
#include <client/LiveClient.h>
#include <malloc.h>
#include <unistd.h>

#include <atomic>
#include <latch>
#include <thread>

#include "support/Fixture.h"

namespace qoz::test {
namespace {

using vpp::VppError;

constexpr uint32_t kW = 64;
constexpr uint32_t kH = 48;
constexpr ConfigParams kTwice{1, 0, 1, 0};  // 2x
constexpr ConfigParams kFourfold{1, 0, 3, 0};

class Restart : public ComponentTest {
  protected:
    // Configures the component as a client does, and waits for the start that this requests.
    void configure(ConfigParams params, uint32_t w = kW, uint32_t h = kH, uint32_t format = kRgba) {
        vpp->config(w, h, format, params, true);
        (void)vpp->isInputPortEnabled(w, h, format);  // only the first config() waits
    }
    void restart(ConfigParams params, bool enableAgain) {
        if (enableAgain) {
            vpp->disable();
            ASSERT_TRUE(enable());
        }
        configure(params);
        ASSERT_EQ(vpp->state(), VppComponent::ACTIVE);
    }
    Strings lastMetas() const { return inputs().back().metas; }
    std::vector<std::pair<int64_t, int>> segments() {
        std::vector<std::pair<int64_t, int>> sent;
        for (const auto& segment : session().segments())
            sent.emplace_back(segment.startTimestamp, segment.interpFactor);
        return sent;
    }
};

TEST_F(Restart, AStartSendsOneSegmentAndForgetsTheOutputTime) {
    using Segments = std::vector<std::pair<int64_t, int>>;
    for (const bool enableAgain : {false, true}) {
        SCOPED_TRACE(enableAgain);
        renew();
        enableAndConfig(kW, kH, kTwice);
        ASSERT_EQ(processSource(0, frame(), 200'000'000, kFourfold), 0);
        session().returnOutput(static_cast<int32_t>(0x80000001), 300'000, 1);
        restart(kTwice, enableAgain);
        EXPECT_EQ(segments(), (Segments{{0, 1}}));
        // No frame has come out since this start, so that no FRC segment has ended.
        ASSERT_EQ(processSource(1, frame(), 100'000'000, kFourfold), 0);
        ASSERT_EQ(processSource(2, frame(), 150'000'000, kTwice), 0);
        EXPECT_EQ(segments(), (Segments{{0, 1}, {100'000, 3}, {150'000, 1}}));
    }
}

// A start that only upscales does not write the first segment, which frames may have reused.
TEST_F(Restart, AStartThatOnlyUpscalesKeepsNoSegment) {
    enableAndConfig(kW, kH, kTwice);
    ASSERT_EQ(processSource(0, frame(), 100'000'000, kFourfold), 0);
    session().returnOutput(static_cast<int32_t>(0x80000001), 200'000, 1);
    ASSERT_EQ(processSource(1, frame(), 10'000'000'000, kTwice), 0);
    using Segments = std::vector<std::pair<int64_t, int>>;
    ASSERT_EQ(segments(), (Segments{{10'000'000, 1}, {100'000, 3}}));
    configure({2, 0, 0, 0});
    ASSERT_EQ(processSource(2, frame(), 1'000'000'000, kFourfold), 0);
    EXPECT_EQ(segments(), (Segments{{0, 0}, {1'000'000, 3}}));
}

TEST_F(Restart, OnePlaceIsHeldHoweverOftenConfigIsCalled) {
    makeEnabled();
    for (int i = 0; i < 3; ++i)
        configure(kTwice);
    for (const int32_t slot : {0, 1, 2})
        ASSERT_EQ(processSource(slot, frame(), slot * 1000 + 1000), 0);
    EXPECT_EQ(client.done(1), (std::vector<Done>{{1, 0, 1, 0}, {1, 1, 1, 0}}));
    configure(kTwice);
    for (const int32_t slot : {3, 4})
        ASSERT_EQ(processSource(slot, frame(), slot * 1000 + 1000), 0);
    vpp->flushsync();
    configure(kTwice);
    ASSERT_EQ(processSource(5, frame(), 9000), 0);
    EXPECT_EQ(client.done(1).size(), 5) << "one source stays, not one for each config";
}

// The component configures the converter whenever its settings change. The simulated converter
// refuses frames for which it is not configured, like that of a device.
TEST_F(Restart, TheConverterFollowsTheSettings) {
    struct Row {
        const char* what;
        ConfigParams params;
        uint32_t width, height, format;
        Strings metas;
    };
    constexpr uint32_t kRgbx = 2;
    for (const bool enableAgain : {false, true}) {
        for (const Row& row : {Row{"the same", kTwice, kW, kH, kRgba, kAllThree},
                               Row{"a new size", kTwice, 96, 80, kRgba, kHalfOnly},
                               Row{"a new ratio", {1, 0, 1, 1}, kW, kH, kRgba, kAllThree},
                               Row{"a new format", kTwice, kW, kH, kRgbx, kAllThree},
                               Row{"all of them", {1, 0, 2, 1}, 35, 18, kRgbx, kHalfOnly}}) {
            SCOPED_TRACE(testing::Message() << row.what << ", enabled again: " << enableAgain);
            renew();
            enableAndConfig(kW, kH, kTwice);
            ASSERT_EQ(processSource(0, frame(), 1000), 0);
            ASSERT_EQ(processSource(1, frame(), 2000), 0);
            if (enableAgain) {
                vpp->disable();
                ASSERT_TRUE(enable());
            }
            configure(row.params, row.width, row.height, row.format);
            const auto format = static_cast<int32_t>(row.format);
            ASSERT_EQ(processSource(2, frame(row.width, row.height, format), 3000), 0);
            EXPECT_EQ(lastMetas(), enableAgain ? kHalfOnly : row.metas);
            ASSERT_EQ(processSource(3, frame(row.width, row.height, format), 4000), 0);
            EXPECT_EQ(lastMetas(), kAllThree);
        }
    }
}

TEST_F(Restart, NoReferenceOutlivesItsConverter) {
    enableAndConfig(kW, kH, kTwice);
    ASSERT_EQ(processSource(0, frame(), 1000), 0);
    restart(kTwice, true);
    ASSERT_EQ(processSource(-1, frame(), 0), 0);
    ASSERT_EQ(processSource(1, frame(), 2000), 0);
    EXPECT_EQ(lastMetas(), kHalfOnly) << "what the previous session saw is no reference";
}

TEST_F(Restart, ADisabledComponentHoldsTheLastSourceAlone) {
    enableAndConfig(kW, kH, kTwice);
    const auto before = host::counters().graphicBuffersLive;
    for (const int32_t slot : {0, 1})
        ASSERT_EQ(processSource(slot, frame(), slot * 1000 + 1000), 0);
    vpp->disable();
    EXPECT_EQ(host::counters().graphicBuffersLive, before + 1);
    restart(kTwice, true);
    const auto source = frame();
    ASSERT_EQ(processSource(-1, source, 0), 0);
    EXPECT_EQ(host::counters().graphicBuffersLive, before + 1) << "the new source, not the old one";
}

TEST_F(Restart, TheGettersAnswerBeforeTheStartHasRun) {
    makeEnabled();
    Gate first, second;
    Gate* gate = &first;
    session().onCall = [&gate](const std::string& call) {
        if (call == "setCtrlVppMode" && gate != nullptr) gate->hold();
    };
    vpp->config(kW, kH, kRgba, kTwice, false);
    EXPECT_EQ(vpp->outBufReqsPerFrame(), 3);
    EXPECT_EQ(vpp->expectedOutputWidth(), kW);
    first.inside.wait();
    gate = &second;
    first.release.count_down();
    vpp->config(96, 80, kRgba, {1, 0, 3, 2}, false);  // waits for the previous start
    EXPECT_EQ(vpp->outBufReqsPerFrame(), 4);
    EXPECT_EQ(vpp->expectedOutputWidth(), 192);
    EXPECT_EQ(vpp->expectedOutputHeight(), 160);
    second.inside.wait();
    gate = nullptr;
    second.release.count_down();
    EXPECT_TRUE(vpp->isInputPortEnabled(96, 80, kRgba));
}

// A failed start leaves an active session active. Only the log, the getters and the buffers that
// the service refuses show the failure to the client.
TEST_F(Restart, AStartThatFailsLeavesTheSessionThatRuns) {
    enableAndConfig(kW, kH, kTwice);
    configure(kTwice, 96, 80, 3);  // a format that is not supported
    EXPECT_EQ(vpp->expectedOutputWidth(), kW);
    EXPECT_EQ(vpp->expectedOutputHeight(), kH);
    ASSERT_EQ(processOutput(7, nv12()), 0);
    EXPECT_TRUE(client.done().empty()) << "a buffer of that size is still taken";
    log.clear();
    session().results["setParameter0"] = VppError::VPP_ERR_PARAM;
    configure(kTwice, 96, 80);
    EXPECT_EQ(vpp->state(), VppComponent::ACTIVE);
    EXPECT_EQ(log.errors("VPP processStart_l failure, cancel the output buffer buffer"), 1);
    session().results["setCtrlFrc"] = VppError::VPP_ERR_PARAM;
    configure(kTwice);
    EXPECT_EQ(vpp->state(), VppComponent::ERROR);
    session().results.clear();
    configure(kTwice);
    EXPECT_EQ(vpp->state(), VppComponent::ACTIVE) << "a start that succeeds leaves ERROR";
}

TEST_F(Restart, AStartThatMeetsDisableLeavesNoOpenSession) {
    enableAndConfig(kW, kH, kTwice);
    session().results["flush0"] = VppError::VPP_ERR_HW;
    vpp->flushsync();
    ASSERT_EQ(vpp->state(), VppComponent::ERROR);
    Gate start;
    session().onCall = [&start](const std::string& call) {
        if (call == "setCtrlVppMode") start.hold();
    };
    log.onLine = [&start](const std::string& text) {
        if (text.find("Start exiting VPP OBD thread") != std::string::npos)
            start.release.count_down();  // disable() has read ERROR and waits for the worker
    };
    vpp->config(kW, kH, kRgba, kTwice, false);
    start.inside.wait();
    vpp->disable();
    log.onLine = nullptr;
    session().onCall = nullptr;
    EXPECT_EQ(vpp->state(), VppComponent::UNINIT);
    EXPECT_EQ(lastCalls(3), (Strings{"open", "close", "terminateSession"}));
}

// An output buffer that waits behind config() also waits for the start that config() posts.
TEST_F(Restart, AStartKeepsAnOutputWaitingAndDoesNotRefuseIt) {
    enableAndConfig(kW, kH, kTwice);
    std::atomic<int32_t> result{-1};
    std::atomic<pid_t> id{0};
    std::thread other;
    log.onLine = [&](const std::string& text) {
        if (text == "VPP processStart_l success") {
            // The gate is open and the start still pending until this function ends. A buffer that
            // waits for the start stays asleep.
            int looks = 0;
            (void)eventually([&] { return result != -1 || (isAsleep(id) && ++looks == 20); });
        }
        if (text.find("config qoz needs") == std::string::npos) return;
        other = std::thread([&] {
            id = gettid();
            result = processOutput(0, nv12());
        });
        ASSERT_TRUE(eventually([&] { return id != 0 && isAsleep(id); }));  // config() has the gate
    };
    vpp->config(kW, kH, kRgba, kTwice, false);
    other.join();
    EXPECT_EQ(result, 0);
    EXPECT_EQ(queuedOn(vpp::VppPort::OUTPUT).size(), 1);
}

// All threads that wait for a start continue when it has finished.
TEST_F(Restart, AStartWakesEveryoneWhoWaitsForIt) {
    makeEnabled();
    peer().setWaitLimit(2 * kSoon);
    for (int round = 0; round < 10; ++round) {
        Gate start;
        session().onCall = [&start](const std::string& call) {
            if (call == "setCtrlVppMode") start.hold();
        };
        std::atomic<int> woken{0};
        std::latch waiting(2);
        vpp->config(kW, kH, kRgba, kTwice, false);
        start.inside.wait();
        std::thread first([&] {
            waiting.count_down();
            EXPECT_TRUE(vpp->isInputPortEnabled(kW, kH, kRgba));
            ++woken;
        });
        std::thread second([&] {
            waiting.count_down();
            EXPECT_EQ(processOutput(round, buffer(kW, kH, kNv12)), 0);
            ++woken;
        });
        waiting.wait();
        for (int i = 0; i < 1000; ++i)
            std::this_thread::yield();
        start.release.count_down();
        EXPECT_TRUE(eventually([&woken] { return woken == 2; })) << "round " << round;
        first.join();
        second.join();
    }
}

TEST_F(Restart, ManyNamesOccupyNoMoreThanOne) {
    constexpr size_t kLength = 200'000;
    make();
    size_t after = 0;
    for (int i = 0; i < 60; ++i) {
        ASSERT_TRUE(
            vpp->enable(std::string(kLength, static_cast<char>('a' + i % 26)), &client, false));
        vpp->disable();
        log.clear();
        if (i == 9) after = mallinfo2().uordblks;
    }
    EXPECT_LT(mallinfo2().uordblks, after + 10 * kLength);
}

// Streams with the simulated service, whose output frames are counted.
class RestartedStream : public ResourceTest {
  protected:
    host::VppService service;
    LogCapture log;
};

TEST_F(RestartedStream, MakesTheFramesOfItsOwnFactor) {
    constexpr int64_t kFrameNs = 16'000'000;
    constexpr int kSources = 12;
    client::LiveClient client;
    const auto play = [&](std::optional<ConfigParams> carried) {
        size_t frames = 0;
        uint64_t newest = 0;
        client.onFrame = [&](const auto&, const auto& returned) {
            ++frames;
            newest = returned.timestamp;
        };
        for (int n = 0; n < kSources; ++n) {
            EXPECT_TRUE(client.send(kW, kH, n * kFrameNs, {}, n == 4 ? carried : std::nullopt));
        }
        EXPECT_TRUE(client.await([&] { return newest == (kSources - 1) * kFrameNs / 1000; }));
        client.vpp->flushsync();
        client.look();
        client.onFrame = {};
        EXPECT_EQ(client.account(), "");
        return frames;
    };
    ASSERT_TRUE(client.start(kW, kH, kTwice));
    EXPECT_EQ(play(kFourfold), 1 + 4 * 2 + 7 * 4);
    client.vpp->config(kW, kH, kRgba, kTwice, true);
    ASSERT_TRUE(client.vpp->isInputPortEnabled(kW, kH, kRgba));
    EXPECT_EQ(play({}), 23) << "config again";
    client.vpp->disable();
    ASSERT_TRUE(client.start(kW, kH, {1, 0, 2, 0}));
    EXPECT_EQ(play({}), 34) << "enabled again, with another factor";
    client.stop();
}

}  // namespace
}  // namespace qoz::test
