// SPDX-License-Identifier: Apache-2.0
// Tests of queueing buffers to the service: records, cookies, side buffers, counters, and failures.
#include <fcntl.h>
#include <sys/resource.h>
#include <utils/Timers.h>

#include "pipeline/Cookie.h"
#include "support/Fixture.h"

namespace qoz::test {
namespace {

using vpp::VppError;
using vpp::VppPort;
using SideBuffers = VppComponentPeer::SideBuffers;

const std::string kFw = "vpp.metabuf.mv.fw", kBw = "vpp.metabuf.mv.bw";
const std::string kHalf = "vpp.metabuf.scale.0p5";

class Queueing : public ComponentTest {
  protected:
    void SetUp() override {
        ComponentTest::SetUp();
        enableAndConfig(64, 64, {1, 0, 1, 0});
        frame = buffer(64, 64, kNv12);
    }

    void TearDown() override {
        frame = nullptr;
        ComponentTest::TearDown();
    }

    // Queues one input frame with these side buffers and returns the record that the service
    // received.
    Queued queueInput(SideBuffers side, uint64_t timestamp, uint32_t id = 3) {
        EXPECT_TRUE(peer().queueBuffer(frame, side, id, timestamp, true));
        return queuedOn(VppPort::INPUT).back();
    }

    static sp<GraphicBuffer> small() { return buffer(8, 8, kRgba); }

    // Makes the opening of descriptors fail during its life.
    struct NoDescriptors {
        NoDescriptors() {
            getrlimit(RLIMIT_NOFILE, &before);
            const rlimit none{0, before.rlim_max};
            setrlimit(RLIMIT_NOFILE, &none);
        }
        ~NoDescriptors() { setrlimit(RLIMIT_NOFILE, &before); }
        rlimit before{};
    };

    sp<GraphicBuffer> frame;
};

TEST_F(Queueing, CookiesRoundTrip) {
    namespace cookie = android::cookie;
    EXPECT_EQ(static_cast<uint64_t>(cookie::forOutput(5)), 0xFFFFFFFF80000005);
    EXPECT_EQ(cookie::forInput(5, true), 0x10005);
    for (const uint32_t id : {0U, 1U, 63U, 0xFFFFU, 0x7FFE0000U}) {
        for (const int64_t made :
             {cookie::forOutput(id), cookie::forInput(id, true), cookie::forInput(id, false)}) {
            EXPECT_EQ(cookie::idOf(made), id);
        }
        EXPECT_TRUE(cookie::isOutput(cookie::forOutput(id)));
        EXPECT_FALSE(cookie::isOutput(cookie::forInput(id, true)));
        EXPECT_TRUE(cookie::isInternal(cookie::forInput(id, true)));
        EXPECT_FALSE(cookie::isInternal(cookie::forInput(id, false)));
    }
}

TEST_F(Queueing, AnInputRecordDescribesTheFrame) {
    peer().setNeedAdditionalBuffer(true);
    const Queued pooled = queueInput({}, 77);
    EXPECT_EQ(pooled.cookie, 0x10003);
    constexpr uint32_t kSize = 8192;  // bytes of a 64x64 NV12 buffer, in whole pages
    EXPECT_EQ(std::tuple(pooled.allocLen, pooled.filledLen, pooled.size, pooled.descriptors),
              std::tuple(kSize, kSize, kSize, 1U));
    EXPECT_EQ(pooled.inode, inodeOf(frame->handle->data[0]));
    EXPECT_EQ(pooled.timestamp, 77);
    EXPECT_EQ(peer().yuvMap().at(77), frame);
    EXPECT_EQ(log.count("skip to emplace empty mv buffers and downscale buffers"), 1);
    peer().setNeedAdditionalBuffer(false);
    EXPECT_EQ(queueInput({}, 78).cookie, 3);
    EXPECT_FALSE(peer().yuvMap().contains(78));
    EXPECT_EQ(peer().inVpp(), std::pair(2U, 0U));
}

TEST_F(Queueing, MetabuffersFollowWhatExists) {
    struct Row {
        SideBuffers side;
        bool mv, ds;
        Strings metas;
    };
    uint64_t timestamp = 100;
    for (const Row& row : {
             Row{{small(), small(), small()}, true, true, {kFw, kBw, kHalf}},
             Row{{small(), small(), nullptr}, true, false, {kFw, kBw}},
             Row{{small(), nullptr, small()}, true, true, {kHalf}},
             Row{{nullptr, small(), nullptr}, true, true, {}},
             Row{{nullptr, nullptr, small()}, false, true, {kHalf}},
             Row{{small(), small(), small()}, false, false, {}},
         }) {
        peer().setSideBuffersEnabled(row.mv, row.ds);
        EXPECT_EQ(queueInput(row.side, ++timestamp).metas, row.metas) << timestamp;
        EXPECT_TRUE(peer().extradataMap().contains(timestamp));
    }
}

TEST_F(Queueing, AnEntryInFlightIsNotReplaced) {
    const auto first = small();
    EXPECT_EQ(queueInput({nullptr, nullptr, first}, 9).metas.size(), 1);
    EXPECT_EQ(queueInput({small(), small(), small()}, 9).metas.size(), 1) << "the first entry's";
    EXPECT_EQ(std::get<2>(peer().extradataMap().at(9)), first);
}

TEST_F(Queueing, AnOutputRecordIsEmptyAndActivates) {
    vpp->flushsync();
    ASSERT_EQ(vpp->state(), VppComponent::IDLE);
    const auto before = static_cast<uint64_t>(systemTime(SYSTEM_TIME_MONOTONIC));
    EXPECT_EQ(processOutput(63, frame), 0);
    const auto after = static_cast<uint64_t>(systemTime(SYSTEM_TIME_MONOTONIC));
    EXPECT_EQ(vpp->state(), VppComponent::ACTIVE);
    const Queued output = queuedOn(VppPort::OUTPUT).back();
    EXPECT_EQ(static_cast<uint64_t>(output.cookie), 0xFFFFFFFF8000003F);
    EXPECT_GE(output.timestamp, before) << "the time of the queueing, nanoseconds";
    EXPECT_LE(output.timestamp, after);
    EXPECT_EQ(std::tuple(output.allocLen, output.filledLen, output.metas),
              std::tuple(8192U, 0U, Strings{}));
    EXPECT_EQ(peer().inVpp(), std::pair(0U, 1U));
}

// Result 0 means that the buffer is taken, so a buffer that the service refuses is returned to the
// client at once, and only once.
TEST_F(Queueing, AnOutputBufferThatIsRefusedComesBackInvalid) {
    struct Row {
        int32_t slot;
        sp<GraphicBuffer> output;
        std::function<void()> breakIt;
        const char* message;
    };
    const auto nothing = [] {};
    const auto refuse = [this] { session().results["queueBuf1"] = VppError::VPP_ERR_NO_MEM; };
    const auto noHandle = [] { host::armFault({"native_handle_create"}); };
    for (const Row& row : {
             Row{64, frame, nothing, "output buffer refused: slot 64 is out of range"},
             Row{-5, frame, nothing, "output buffer refused: slot -5 is out of range"},
             Row{1, buffer(64, 32, kNv12), nothing,
                 "Queued output buffer size=64x32 doesn't match expected buffer size=64x64"},
             Row{2, buffer(64, 64, 99), nothing, "invalid graphic buffer"},
             Row{3, frame, refuse, "failed to queue vpp buffer"},
             Row{4, frame, noHandle, "native_handle_create failed"},
         }) {
        client.clear();
        row.breakIt();
        EXPECT_EQ(processOutput(row.slot, row.output), 0) << row.message;
        EXPECT_EQ(client.done(), (std::vector<Done>{{0, row.slot, 0, 0}})) << row.message;
        EXPECT_EQ(log.count(row.message), 1) << row.message;
        EXPECT_EQ(peer().inVpp().second, 0) << row.message;
    }
    client.clear();
    {
        const NoDescriptors exhausted;
        EXPECT_EQ(processOutput(5, frame), 0);
    }
    EXPECT_EQ(client.done(), (std::vector<Done>{{0, 5, 0, 0}}));
    EXPECT_EQ(processOutput(6, nullptr), 1) << "refused: still the client's";
    EXPECT_EQ(client.done().size(), 1);
}

TEST_F(Queueing, AFrameThatIsRefusedLeavesItsBuffersToTheNext) {
    peer().setNeedAdditionalBuffer(true);
    session().results["queueBuf0"] = VppError::VPP_ERR_STATE;
    SideBuffers side{small(), small(), small()};
    EXPECT_FALSE(peer().queueBuffer(frame, side, 3, 500, true));
    EXPECT_EQ(std::get<0>(side), nullptr) << "moved into the pool";
    EXPECT_EQ(peer().inVpp(), std::pair(0U, 0U));
    EXPECT_EQ(peer().freeYuv(), (std::set<uint64_t>{500}));
    EXPECT_EQ(peer().freeExtradata(), (std::set<uint64_t>{500}));
    EXPECT_TRUE(client.done().empty()) << "nothing of the client's was in it";
    // A target that the client supplied is returned to it.
    peer().setNeedAdditionalBuffer(false);
    EXPECT_FALSE(peer().queueBuffer(frame, side, 8, 501, true));
    EXPECT_FALSE(peer().queueBuffer(frame, side, 0x10001, 502, true)) << "collides with a flag";
    EXPECT_EQ(client.done(), (std::vector<Done>{{0, 8, 0, 0}, {0, 0x10001, 0, 0}}));
    SideBuffers kept{small(), nullptr, nullptr};
    EXPECT_FALSE(peer().queueBuffer(nullptr, kept, 9, 503, true));
    EXPECT_NE(std::get<0>(kept), nullptr) << "untouched";
}

TEST_F(Queueing, AFailedMetabufferLeavesTheFrame) {
    uint64_t nth = 0;
    for (const Strings& metas : {Strings{"", ""}, Strings{kFw, ""}, Strings{kFw, kBw, ""}}) {
        SideBuffers side{small(), small(), small()};
        host::clearFaults();
        host::armFault({.operation = "native_handle_create", .nth = ++nth});
        EXPECT_EQ(queueInput(std::move(side), nth).metas, metas);
        EXPECT_EQ(log.errors("nhMeta" + std::to_string(nth) + " native_handle_create failed"), 1);
    }
    const size_t before = queuedOn(VppPort::INPUT).size();
    SideBuffers side{small(), small(), small()};
    {
        const NoDescriptors exhausted;
        EXPECT_FALSE(peer().queueBuffer(frame, side, 3, 999, true));
    }
    EXPECT_EQ(queuedOn(VppPort::INPUT).size(), before) << "without descriptors: not queued";
}

// An output buffer of the wrong size is also returned, and never anything for a buffer without a
// slot.
TEST_F(Queueing, OnlyBuffersWithASlotAreReported) {
    EXPECT_FALSE(peer().queueVppBuffer(7, buffer(32, 32, kNv12), false));
    EXPECT_EQ(client.done(), (std::vector<Done>{{0, 7, 0, 0}}));
    client.clear();
    peer().setSideBuffersEnabled(false, false);
    const auto nv12 = buffer(64, 48, kNv12);
    EXPECT_EQ(process({{-1, nv12, {}, 1000, {}}, {4, nv12, {}, 0, {}}}), 0);
    EXPECT_EQ(process({{5, buffer(64, 48, kRgba), {}, 2000, {}}, {-1, nv12, {}, 0, {}}}), 0);
    for (const Done& done : client.done())
        EXPECT_NE(done.slot, -1);
}

}  // namespace
}  // namespace qoz::test
