// SPDX-License-Identifier: Apache-2.0
// Tests of the intake of source frames, with the simulator's converter, and of the settings that
// frames carry.
#include <sys/eventfd.h>

#include <atomic>
#include <thread>

#include "support/Fixture.h"

namespace qoz::test {
namespace {

using vpp::VppError;
using vpp::VppPort;

class Intake : public ComponentTest {
  protected:
    void startFull() { enableAndConfig(kW, kH, {1, 0, 1, 0}); }

    // Returns the side buffers of each frame that the service has received on the input port.
    std::vector<Strings> metas() const {
        std::vector<Strings> result;
        for (const auto& queued : inputs())
            result.push_back(queued.metas);
        return result;
    }

    // Returns all buffers that the service holds on the input port.
    void returnInputs() {
        const auto all = inputs();
        for (; mReturned < all.size(); ++mReturned) {
            session().returnInput(all[mReturned].cookie, all[mReturned].timestamp);
        }
    }

  private:
    size_t mReturned = 0;
};

TEST_F(Intake, APlainFrameIsConvertedAndReleased) {
    startPlain();
    ASSERT_EQ(processSource(7, frame(), 1234567), 0);
    EXPECT_EQ(inputs().at(0).timestamp, 1234) << "microseconds";
    EXPECT_EQ(inputs()[0].cookie, 0x10007);
    EXPECT_EQ(metas(), std::vector<Strings>{{}});
    EXPECT_EQ(client.done(), (std::vector<Done>{{1, 7, 1, 0}}));
    ASSERT_EQ(processSource(8, frame(), -1999), 0);
    EXPECT_EQ(inputs()[1].timestamp, static_cast<uint64_t>(-1)) << "toward zero";
}

TEST_F(Intake, SteadyStateAllocatesNothing) {
    startFull();
    uint64_t after = 0;
    const std::array<sp<GraphicBuffer>, 3> ring{frame(), frame(), frame()};
    for (int n = 0; n < 20; ++n) {
        ASSERT_EQ(processSource(n % 3, ring[static_cast<size_t>(n % 3)], n * 1000), 0);
        returnInputs();
        if (n == 2) after = host::counters().graphicBuffersMade;
    }
    EXPECT_EQ(host::counters().graphicBuffersMade, after);
}

TEST_F(Intake, WithMotionVectorsASourceIsReleasedOneFrameLate) {
    startFull();
    ASSERT_EQ(processSource(0, frame(), 1000), 0);
    EXPECT_TRUE(client.done().empty()) << "the placeholder's turn";
    ASSERT_EQ(processSource(1, frame(), 2000), 0);
    ASSERT_EQ(processSource(2, frame(), 3000), 0);
    EXPECT_EQ(client.done(), (std::vector<Done>{{1, 0, 1, 0}, {1, 1, 1, 0}}));
    EXPECT_EQ(metas(), (std::vector<Strings>{kHalfOnly, kAllThree, kAllThree}))
        << "the first is fresh";
    vpp->flushsync();
    EXPECT_EQ(client.done().back(), (Done{1, 2, 1, 0}));
}

TEST_F(Intake, BadPacketsAreRefusedAndStayTheClients) {
    makeEnabled();
    EXPECT_EQ(processSource(0, frame(), 0), 1) << "nothing started";
    vpp->config(kW, kH, kRgba, {1, 0, 1, 0}, true);
    EXPECT_EQ(processSource(0, nullptr, 0), 1);
    EXPECT_EQ(log.errors("processBuffer: INVALID INPUT !"), 2);
    EXPECT_EQ(process(std::vector<QOZBufferInfo>(3, {0, frame(), {}, 0, {}})), 1);
    EXPECT_EQ(log.errors("Send more than 2 buffers in one packet is NOT supported !"), 1);
    EXPECT_EQ(process({{0, frame(), {}, 0, {}}, {1, nullptr, {}, 0, {}}}), 1);
    EXPECT_TRUE(client.done().empty());
    EXPECT_TRUE(session().queued().empty());
}

TEST_F(Intake, AnOutputBufferStartsASessionInInit) {
    makeEnabled();
    session().results["open"] = VppError::VPP_ERR_RESOURCES;
    EXPECT_EQ(processOutput(4, nv12()), 1);
    EXPECT_EQ(client.done(), (std::vector<Done>{{0, 4, 0, 0}}));
    session().results.clear();
    EXPECT_EQ(processOutput(5, nv12()), 0);
    EXPECT_EQ(vpp->state(), VppComponent::ACTIVE);
    EXPECT_EQ(vpp->expectedOutputWidth(), kW);
    EXPECT_GT(queuedOn(VppPort::OUTPUT).at(0).timestamp, 0) << "the monotonic clock";
    EXPECT_EQ(processSource(0, frame(), 1000), 0) << "the format is known now";
}

TEST_F(Intake, ADummySetsTheConverterUpAndNeverComesBack) {
    startFull();
    const auto ready =
        "processBuffer : ME is configured successfully, return directly since this is dummy buffer";
    EXPECT_EQ(processSource(-1, frame(), 0), 0);
    EXPECT_EQ(processSource(-1, frame(), 0), 0);
    EXPECT_EQ(log.count(ready), 1) << "the second has nothing to do";
    EXPECT_EQ(processSource(0, frame(), 1000), 0);
    EXPECT_EQ(log.count("processBuffer: Setup MotionEngine, isFirstFrame=1, isBufferSizeChanged=0"),
              0);
    EXPECT_EQ(metas(), std::vector<Strings>{kHalfOnly});
    EXPECT_TRUE(client.done().empty());
}

TEST_F(Intake, ConvertedSourcesAreQueuedAsTheyAre) {
    startPlain();
    EXPECT_EQ(processSource(3, nv12(), 5000), 0);
    EXPECT_EQ(inputs().at(0).cookie, 3);
    EXPECT_TRUE(client.done().empty()) << "the service gives it back";
    returnInputs();
    EXPECT_EQ(client.done(), (std::vector<Done>{{0, 3, 0, 0}}));
    EXPECT_EQ(process({{4, nv12(), {}, 6000, {}}, {5, nv12(), {}, 0, {}}}), 0);
    EXPECT_EQ(client.done().back(), (Done{0, 5, 0, 0})) << "an idle target comes straight back";
    session().results["queueBuf0"] = VppError::VPP_ERR;
    EXPECT_EQ(processSource(6, nv12(), 7000), 0);
    EXPECT_EQ(client.done().back(), (Done{0, 6, 0, 0}));
    EXPECT_EQ(log.count("Nothing needs to be done in ME, directly queue buffer to VPP"), 3);
}

TEST_F(Intake, AClientsTargetTravelsUnderItsOwnSlot) {
    startPlain();
    EXPECT_EQ(process({{1, frame(), {}, 9000, {}}, {40, nv12(), {}, 0, {}}}), 0);
    EXPECT_EQ(inputs().at(0).cookie, 40);
    returnInputs();
    EXPECT_EQ(client.done(), (std::vector<Done>{{1, 1, 1, 0}, {0, 40, 0, 0}}));
    // After packets with and without a target in turn, each target is returned.
    client.clear();
    EXPECT_EQ(processSource(2, frame(), 10000), 0);
    EXPECT_EQ(process({{3, frame(), {}, 11000, {}}, {41, nv12(), {}, 0, {}}}), 0);
    EXPECT_EQ(processSource(4, frame(), 12000), 0);
    returnInputs();
    EXPECT_EQ(client.done(0), (std::vector<Done>{{0, 41, 0, 0}}));
}

// Every kind of failure costs only its own frame: that one is refused, and the next one is taken.
TEST_F(Intake, AFailedFrameIsRefusedAndTheStreamGoesOn) {
    struct Row {
        const char* operation;
        uint64_t nth;
        int32_t result;
    };
    for (const Row& row : {Row{"RGBToNV12", 2, 1}, Row{"MvBufferGeneration", 1, 1},
                           Row{"GetMVbufferSize", 1, 0}, Row{"allocate", 3, 1},
                           Row{"allocate", 4, 1}, Row{"allocate", 5, 1}, Row{"allocate", 6, 1}}) {
        SCOPED_TRACE(row.operation);
        renew();
        startFull();
        const auto first = frame(), second = frame(), third = frame();
        host::armFault({.operation = row.operation, .nth = row.nth});
        ASSERT_EQ(processSource(0, first, 1000), 0);
        EXPECT_EQ(processSource(1, second, 2000), row.result);
        EXPECT_EQ(log.errors("RGBToNV12 or MvBufferGeneration error"), row.result);
        EXPECT_EQ(processSource(2, third, 3000), 0);
        EXPECT_EQ(metas().back(), kAllThree) << "of the frame after it";
        EXPECT_EQ(client.done(1).front(), (Done{1, 0, 1, 0}));
    }
}

TEST_F(Intake, AnUnsignalledFenceIsWaitedFor) {
    startPlain();
    const int fd = eventfd(0, EFD_CLOEXEC);
    const sp<android::Fence> fence(new android::Fence(fd));
    std::atomic<bool> signalled{false};
    std::thread gpu([&] {
        ASSERT_TRUE(eventually(
            [this] { return log.count("processBuffer input frame timestamp = 1000 ns") == 1; }));
        signalled = true;
        eventfd_write(fd, 1);
    });
    EXPECT_EQ(process({{0, frame(), fence, 1000, {}}}), 0);
    EXPECT_TRUE(signalled);
    gpu.join();
}

TEST_F(Intake, ANewSizeReshapesTheSession) {
    startFull();
    ASSERT_EQ(processSource(0, frame(), 1000), 0);
    ASSERT_EQ(processSource(1, frame(), 2000), 0);
    // Changes the size and back on consecutive frames, then to a larger size.
    int32_t slot = 2;
    for (const auto& [w, h] : {std::pair{32U, 32U}, std::pair{kW, kH}, std::pair{96U, 80U}}) {
        client.clear();
        ASSERT_EQ(processSource(slot, frame(w, h), slot * 1000 + 1000), 0);
        EXPECT_EQ(client.done(1), (std::vector<Done>{{1, slot - 1, 1, 0}})) << "by the flush";
        EXPECT_EQ(metas().back(), kHalfOnly) << "fresh";
        EXPECT_EQ(vpp->expectedOutputWidth(), w);
        EXPECT_EQ(session().ports().back().width, static_cast<int>(w));
        ++slot;
    }
    EXPECT_EQ(
        log.count("processBuffer: Reconfigure MotionEngine, isFirstFrame=0, isBufferSizeChanged=1"),
        3);
    ASSERT_EQ(processSource(slot, frame(96, 80), 6000), 0);
    EXPECT_EQ(metas().back(), kAllThree);
    // A frame that fails must not become the reference frame of the next one.
    host::armFault({.operation = "RGBToNV12"});
    EXPECT_EQ(processSource(6, frame(32, 32), 7000), 1);
    EXPECT_EQ(processSource(7, frame(32, 32), 8000), 0);
    EXPECT_EQ(metas().back(), kHalfOnly);
    EXPECT_EQ(processSource(8, frame(32, 32), 9000), 0);
    EXPECT_EQ(metas().back(), kAllThree);
}

// A reference frame of another size or format is not used: the frame is sent without motion
// vectors, and the next frame has them again.
TEST_F(Intake, NoFrameIsRefusedForItsReference) {
    startFull();
    EXPECT_EQ(processSource(-1, frame(32, 32), 0), 0);
    int64_t ts = 0;
    for (const auto& source : {frame(), frame(), nv12(), nv12(), frame(), frame()}) {
        ASSERT_EQ(processSource(0, source, ts += 1000), 0) << ts;
    }
    EXPECT_EQ(metas(), (std::vector<Strings>{kHalfOnly, kAllThree, kHalfOnly, kAllThree, kHalfOnly,
                                             kAllThree}));
}

// Settings that a frame carries apply from the next frame on. Each row has the side buffers of the
// two frames that follow.
TEST_F(Intake, CarriedSettingsHoldFromTheNextFrameOn) {
    struct Row {
        ConfigParams before, carried;
        Strings next, afterNext;
    };
    const Strings vectors{kAllThree[0], kAllThree[1]};
    for (const Row& row : {
             // There are no motion vectors across a change of the ratio.
             Row{{1, 0, 1, 0}, {1, 0, 1, 2}, {}, vectors},
             Row{{1, 0, 1, 2}, {1, 0, 1, 0}, kHalfOnly, kAllThree},
             Row{{1, 0, 1, 0}, {1, 0, 1, 1}, kHalfOnly, kAllThree},
             Row{{1, 0, 1, 0}, {1, 0, 0, 0}, kHalfOnly, kHalfOnly},
             Row{{1, 0, 0, 0}, {1, 0, 1, 0}, kAllThree, kAllThree},
         }) {
        SCOPED_TRACE(testing::Message()
                     << "factor " << row.before.interpFactor << " to " << row.carried.interpFactor
                     << ", ratio " << row.before.upscaleIndex << " to "
                     << row.carried.upscaleIndex);
        renew();
        enableAndConfig(kW, kH, row.before);
        ASSERT_EQ(processSource(0, frame(), 1000), 0);
        ASSERT_EQ(processSource(1, frame(), 2000, row.carried), 0);
        ASSERT_EQ(processSource(2, frame(), 3000), 0);
        EXPECT_EQ(metas().back(), row.next);
        ASSERT_EQ(processSource(3, frame(), 4000), 0);
        EXPECT_EQ(metas().back(), row.afterNext);
    }
}

TEST_F(Intake, CarriedSettingsTakeEffectAndAreReported) {
    struct Row {
        const char* what;
        ConfigParams carried;
        std::vector<std::set<uint32_t>> told;
        uint32_t outputs;
        VppComponentPeer::Settings settings;
        bool reshaped, segment;
    };
    for (const Row& row : {
             Row{"same", {1, 0, 1, 0}, {}, 3, {1, false, false, true, true, 1.0F}, false, false},
             Row{"3x", {1, 0, 2, 0}, {{0}}, 4, {2, false, false, true, true, 1.0F}, false, true},
             Row{"off", {1, 0, 0, 0}, {{0}}, 1, {0, false, false, false, true, 1.0F}, false, true},
             Row{"beyond", {1, 0, 5, 0}, {{}}, 3, {5, false, false, true, true, 1.0F}, false, true},
             Row{"2x", {1, 0, 1, 2}, {{0, 4}}, 2, {1, true, false, true, false, 2.0F}, true, false},
             Row{"1.5x", {1, 0, 2, 1}, {{4}}, 3, {2, true, false, true, true, 1.5F}, true, true},
             Row{"none", {1, 0, 1, 7}, {{4}}, 3, {1, false, false, true, true, 1.0F}, true, false},
         }) {
        SCOPED_TRACE(row.what);
        renew();
        startFull();
        ASSERT_EQ(processSource(0, frame(), 1000000, row.carried), 0);
        EXPECT_EQ(client.changes(), row.told);
        EXPECT_EQ(vpp->outBufReqsPerFrame(), row.outputs);
        EXPECT_EQ(peer().settings(), row.settings);
        EXPECT_EQ(session().calls().back() == "reconfigure", row.reshaped);
        EXPECT_EQ(peer().firstFrame(), row.reshaped);
        EXPECT_EQ(client.done(1).size(), row.reshaped ? 1 : 0) << "the held slot, by the flush";
        EXPECT_EQ(peer().yuvMap().size(), 1) << "kept";
        EXPECT_EQ(vpp->expectedOutputWidth(), std::get<5>(row.settings) * kW);
        EXPECT_EQ(session().segments().size(), row.segment ? 2 : 1);
        EXPECT_EQ(session().segments().back().startTimestamp, row.segment ? 1000 : 0);
    }
}

}  // namespace
}  // namespace qoz::test
