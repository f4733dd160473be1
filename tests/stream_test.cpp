// SPDX-License-Identifier: Apache-2.0
// Tests of formats, config(), the rules for port sizes, starts and FRC segments, and of flush,
// reconfiguration and drain.
#include <latch>
#include <thread>

#include "stream/VppUtils.h"
#include "support/Fixture.h"

namespace qoz::test {
namespace {

using vpp::VppError;

constexpr uint32_t kYuv = android::QOZFormat::kVendorYuv;

class Stream : public ComponentTest {};

auto described(const vpp::VppPortParam& p) {
    return std::tuple(p.width, p.height, p.stride, p.scanlines, p.colorFormat);
}

TEST_F(Stream, FormatsAreClassified) {
    struct Row {
        uint32_t format;
        int32_t color;
        uint32_t yuv;
        bool rgb;
        int getFormat, port;
        bool supported;
    };
    make("0");
    for (const Row& row :
         {Row{1, 2, kNv12, true, 0, 8, true}, Row{2, 3, kNv12, true, 0, 8, true},
          Row{277, 4, kNv12, true, 0, 8, true}, Row{kYuv, 0, kYuv, false, 3, 0, false},
          Row{kNv12, 1, kNv12, false, 3, 3, true}, Row{3, -1, 3, false, 3, 8, false}}) {
        SCOPED_TRACE(row.format);
        log.clear();
        EXPECT_EQ(android::VppUtils::GetSupportedColor(row.format), row.color);
        EXPECT_EQ(android::VppUtils::GetYUVFormat(row.format), row.yuv);
        EXPECT_EQ(android::VppUtils::IsRGBFmt(row.format), row.rgb);
        EXPECT_EQ(log.errors("no supported color"), row.color < 0 ? 3 : 0);
        EXPECT_EQ(android::VppUtils::portColorFormat(row.format), row.port);
        int yuv = 0;
        EXPECT_EQ(vpp->GetFormat(static_cast<int>(row.format), yuv), row.getFormat);
        EXPECT_EQ(static_cast<uint32_t>(yuv), row.yuv);
        char text[64];
        snprintf(text, sizeof text, "GetFormat: format 0x%x is %s", row.format,
                 row.supported ? "supported" : "not supported");
        EXPECT_EQ(log.count(text, row.supported ? ANDROID_LOG_INFO : ANDROID_LOG_WARN), 1) << text;
        EXPECT_EQ(log.count("GetFormat:  input format is NV12 VEMO, need to go bypass mode"),
                  row.format == kNv12 ? 1 : 0);
    }
}

TEST_F(Stream, ConfigDerivesTheStream) {
    struct Row {
        ConfigParams params;
        const char* sideBuffers;  // the property
        uint32_t outputs;
        VppComponentPeer::Settings settings;
        size_t placeholders;
    };
    for (const Row& row : {
             Row{{1, 0, 1, 0}, "", 3, {1, false, false, true, true, 1.0F}, 1},
             Row{{1, 0, 3, 0}, "", 5, {3, false, false, true, true, 1.0F}, 1},
             Row{{1, 0, 2, 1}, "", 3, {2, true, false, true, true, 1.5F}, 1},
             Row{{1, 0, 1, 2}, "", 2, {1, true, false, true, false, 2.0F}, 1},
             Row{{1, 0, 0, 1}, "", 1, {0, true, false, false, true, 1.5F}, 0},
             Row{{1, 0, 7, 9}, "", 3, {1, false, false, true, true, 1.0F}, 1},
             Row{{2, 0, 1, 2}, "", 3, {1, false, true, false, false, 1.0F}, 0},
             Row{{0, 0, 0, 2}, "", 1, {0, false, false, true, true, 1.0F}, 1},
             Row{{1, 0, 1, 1}, "false", 2, {1, true, false, false, false, 1.5F}, 0},
         }) {
        host::setProperty("debug.vpp.frc.game.ext.mbi", row.sideBuffers);
        make("0");
        vpp->config(64, 64, kRgba, row.params, false);
        SCOPED_TRACE(testing::Message() << "mode " << row.params.mode << " with "
                                        << testing::PrintToString(row.settings));
        EXPECT_EQ(vpp->outBufReqsPerFrame(), row.outputs);
        EXPECT_EQ(peer().settings(), row.settings);
        EXPECT_EQ(peer().slotList(), std::list<int32_t>(row.placeholders, -1));
    }
}

TEST_F(Stream, ResolutionsFollowLimitsAndRatio) {
    struct Row {
        VppComponentPeer::Shape shape;
        std::array<uint32_t, 4> ports;
    };
    make("0");
    for (const Row& row : {
             Row{{1920, 1080, 0, 0, 1, 1.5F, false}, {1920, 1080, 2880, 1620}},
             Row{{1279, 719, 0, 0, 1, 1.5F, false}, {1279, 719, 1920, 1080}},
             Row{{1279, 719, 0, 0, 0, 1.0F, false}, {1279, 719, 1279, 719}},
             Row{{1921, 1081, 0, 0, 1, 1.5F, false}, {1921, 1081, 2884, 1624}},
             Row{{1281, 721, 0, 0, 0, 1.5F, false}, {1281, 721, 1921, 1081}},  // truncated
             Row{{2400, 1080, 1920, 1080, 0, 1.0F, false}, {1920, 1080, 1920, 1080}},
             Row{{1080, 2400, 1920, 1080, 0, 1.0F, false}, {1080, 1920, 1080, 1920}},
             Row{{1080, 2400, 1080, 1920, 0, 1.0F, false}, {1080, 1920, 1080, 1920}},
             Row{{1920, 1200, 1920, 1080, 0, 1.0F, false}, {1920, 1080, 1920, 1080}},
             Row{{1900, 1100, 1920, 1080, 0, 1.0F, false}, {1920, 1080, 1920, 1080}},
             Row{{2000, 2000, 1920, 1080, 0, 1.0F, false}, {1080, 1080, 1080, 1080}},
             Row{{1080, 1920, 1920, 1080, 0, 1.0F, false}, {1080, 1920, 1080, 1920}},
             Row{{4000, 3000, 1920, 0, 0, 1.0F, false}, {4000, 3000, 4000, 3000}},
             Row{{2560, 1440, 1920, 1080, 2, 2.0F, true}, {1920, 1080, 3840, 2160}},
             Row{{641, 361, 0, 0, 0, 1.5F, true}, {641, 361, 1282, 722}},
             Row{{1U << 31, UINT32_MAX, 0, 0, 2, 2.0F, false},  // does not wrap around to 0
                 {1U << 31, UINT32_MAX, UINT32_MAX - 1, UINT32_MAX - 1}},
             Row{{1U << 31, 1, 0, 0, 0, 1.0F, true}, {1U << 31, 1, UINT32_MAX, 2}},
         }) {
        SCOPED_TRACE(testing::Message() << row.shape.width << "x" << row.shape.height);
        EXPECT_EQ(peer().resolve(row.shape), row.ports);
        EXPECT_EQ(vpp->expectedOutputWidth(), row.ports[2]);
        EXPECT_EQ(vpp->expectedOutputHeight(), row.ports[3]);
    }
}

TEST_F(Stream, StartTalksToTheServiceInOrder) {
    enableAndConfig(1280, 720, {1, 0, 2, 1});
    EXPECT_EQ(session().calls(), (Strings{"initSession", "setCtrlVppMode", "setCtrlFrc",
                                          "setParameter0", "setParameter1", "open"}));
    EXPECT_EQ(session().modes(), std::vector<int32_t>{2});
    EXPECT_EQ(described(session().ports().at(0)), std::tuple(1280, 720, 1280, 720, 3));
    EXPECT_EQ(described(session().ports().at(1)), std::tuple(1920, 1080, 1920, 1080, 3));
    const auto segments = session().segments();
    ASSERT_EQ(segments.size(), 1);
    EXPECT_EQ(std::tuple(segments[0].mode, segments[0].interpLevel, segments[0].interpFactor,
                         segments[0].startTimestamp, segments[0].flag1, segments[0].flag2,
                         segments[0].param1, segments[0].param2),
              std::tuple(5, 3, 2, 0, true, false, 40, 2));
    vpp->config(640, 360, kRgba, {2, 0, 0, 0}, false);  // starts again, although already started
    ASSERT_TRUE(eventually([this] { return !peer().startPending(); }));
    EXPECT_EQ(vpp->expectedOutputWidth(), 1280);
    ASSERT_EQ(session().aisControls().size(), 1);
    const auto ais = session().aisControls()[0];
    EXPECT_EQ(std::pair(ais.mode, ais.param), std::pair(2, 30));
    EXPECT_TRUE(vpp->isInputPortEnabled(640, 360, kRgba));
    EXPECT_FALSE(vpp->isInputPortEnabled(640, 360, kNv12));
}

TEST_F(Stream, AFailedStartSaysWhere) {
    struct Row {
        const char* fails;
        ConfigParams params;
        uint32_t format;
        VppComponent::status state;
        const char* last;  // the last call to the service
        const char* message;
    };
    constexpr ConfigParams kFrc{1, 0, 1, 0};
    using enum VppComponent::status;
    constexpr auto kIn = "setParameter0", kOut = "setParameter1";
    for (const Row& row : {
             Row{"setCtrlFrc", kFrc, kRgba, ERROR, "setCtrlFrc", "failed to config vpp"},
             Row{"setCtrlAis", {2, 0, 0, 0}, kRgba, ERROR, "setCtrlAis", "failed to config vpp"},
             Row{"", kFrc, 3, INIT, "setCtrlFrc", "vpp didn't support format:3"},
             Row{kIn, kFrc, kRgba, INIT, kIn, "vpp set parameter input err: 5 output err: 0"},
             Row{kOut, kFrc, kRgba, INIT, kOut, "vpp set parameter input err: 0 output err: 5"},
             Row{"open", kFrc, kRgba, INIT, "open", "vpp open ret: 5"},
             Row{"setCtrlVppMode", kFrc, kRgba, ACTIVE, "open", "VPP processStart_l success"},
             Row{"", kFrc, kYuv, ACTIVE, "open", "VPP processStart_l success"},
         }) {
        SCOPED_TRACE(row.fails);
        renew();
        session().results[row.fails] = VppError::VPP_ERR_PARAM;
        makeEnabled();
        vpp->config(64, 64, row.format, row.params, true);
        EXPECT_EQ(vpp->state(), row.state);
        EXPECT_EQ(session().calls().back(), row.last);
        EXPECT_EQ(log.count(row.message), 1);
        EXPECT_EQ(log.errors("VPP processStart_l failure, cancel the output buffer buffer"),
                  row.state == ACTIVE ? 0 : 1);
        vpp->disable();
        if (row.state == ERROR) {
            EXPECT_EQ(session().calls().back(), row.last) << "an ERROR session is not closed";
        }
    }
}

TEST_F(Stream, SegmentsAreAppendedAndReused) {
    enableAndConfig(64, 64, {1, 0, 1, 0});
    struct Row {
        uint64_t lastOutput, timestamp;
        size_t index, size;  // index of the written segment, and length of the list afterwards
        const char* message;
    };
    for (const Row& row : {
             Row{0, 1000, 1, 2, "Existing FRC segment size=1, allocate new one"},
             Row{999, 2000, 2, 3, "Existing FRC segment size=2, allocate new one"},
             Row{1000, 3000, 0, 3, "Reuse existing FRC segment=0"},
             Row{1500, 4000, 3, 4, "Existing FRC segment size=3, allocate new one"},
             Row{3500, 5000, 0, 4, "Reuse existing FRC segment=0"},
             Row{3500, 6000, 1, 4, "Reuse existing FRC segment=1"},
             // The last output is compared as the signed value -5.
             Row{~4UL, 7000, 4, 5, "Existing FRC segment size=4, allocate new one"},
         }) {
        SCOPED_TRACE(row.message);
        log.clear();
        const auto factor = static_cast<uint32_t>(row.timestamp / 1000);
        ASSERT_TRUE(peer().configFrc(row.timestamp, row.lastOutput, factor));
        EXPECT_EQ(log.count(row.message, ANDROID_LOG_DEBUG), 1);
        const auto sent = session().segments();
        ASSERT_EQ(sent.size(), row.size);
        EXPECT_EQ(sent[row.index].startTimestamp, static_cast<int64_t>(row.timestamp));
        EXPECT_EQ(sent[row.index].interpFactor, static_cast<int32_t>(factor));
    }
    session().results["setCtrlFrc"] = VppError::VPP_ERR;
    EXPECT_FALSE(peer().configFrc(0, ~4UL, 0));
    EXPECT_EQ(log.count("FRC will do 1x interpolation, set interp to LEVEL_OFF"), 1);
    EXPECT_EQ(session().segments()[0].interpLevel, 0);
}

TEST_F(Stream, FlushGivesBackWhatItHolds) {
    enableAndConfig(64, 64, {1, 0, 1, 0});
    peer().slotList() = {-1, 4, -1, 7};
    peer().yuvMap()[5] = buffer(16, 16, kNv12);
    peer().freeYuv() = {5};
    peer().extradataMap()[5] = {nullptr, nullptr, buffer(16, 16, kNv12)};
    // Buffers that the service returns during the flush are delivered before flushsync() returns.
    session().onCall = [this](const std::string& call) {
        if (call != "flush1") return;
        session().send([this](vpp::IVppCallbacks&, VppError*) {
            session().returnOutput(static_cast<int32_t>(0x80000002), 0, 0);
        });
    };
    vpp->flushsync();
    EXPECT_EQ(vpp->state(), VppComponent::IDLE);
    EXPECT_EQ(client.done(1), (std::vector<Done>{{1, 4, 1, 0}, {1, 7, 1, 0}}));
    EXPECT_EQ(client.done(0), (std::vector<Done>{{0, 2, 0, 0}}));
    EXPECT_TRUE(peer().slotList().empty());
    EXPECT_TRUE(peer().yuvMap().empty() && peer().freeYuv().empty() &&
                peer().extradataMap().empty());
    const auto calls = session().calls().size();
    vpp->flushsync();  // IDLE: nothing to flush
    EXPECT_EQ(session().calls().size(), calls);
    EXPECT_EQ(vpp->state(), VppComponent::IDLE);
}

TEST_F(Stream, AFailedFlushStillCleansUp) {
    for (const char* fails : {"flush0", "flush1"}) {
        SCOPED_TRACE(fails);
        renew();
        session().results[fails] = VppError::VPP_ERR_HW;
        enableAndConfig(64, 64, {1, 0, 1, 0});
        peer().slotList() = {3};
        peer().yuvMap()[5] = buffer(16, 16, kNv12);
        vpp->flushsync();
        EXPECT_EQ(vpp->state(), VppComponent::ERROR);
        EXPECT_EQ(log.errors("failed to flush vpp"), 1);
        EXPECT_EQ(client.done(), (std::vector<Done>{{1, 3, 1, 0}}));
        EXPECT_TRUE(peer().yuvMap().empty());
        EXPECT_EQ(lastCalls(2), (Strings{"flush0", "flush1"})) << "both ports, always";
    }
}

TEST_F(Stream, ReconfigureSetsBothPorts) {
    enableAndConfig(1280, 720, {1, 0, 1, 1});
    for (const auto& [format, code] : {std::pair<uint32_t, int>{kNv12, 3}, {kYuv, 0}, {kRgba, 8}}) {
        EXPECT_TRUE(peer().reconfig(1920, 1080, format));
        const auto ports = session().ports();
        EXPECT_EQ(described(ports[ports.size() - 2]), std::tuple(1920, 1080, 1920, 1080, code));
        EXPECT_EQ(described(ports.back()), std::tuple(2880, 1620, 2880, 1620, code));
    }
    const auto before = session().calls().size();
    EXPECT_FALSE(peer().reconfig(640, 360, 3));
    EXPECT_EQ(session().calls().size(), before);
    EXPECT_TRUE(vpp->isInputPortEnabled(1920, 1080, kRgba)) << "no member changed";
}

TEST_F(Stream, WaitsEndWithTheAnswerOrTheLimit) {
    struct Row {
        const char* silent;
        const char* fails;
        VppError status;
        std::function<bool(VppComponentPeer)> run;
        const char* message;
    };
    const auto reconfig = [](VppComponentPeer p) { return p.reconfig(64, 64, kNv12); };
    const auto drain = [](VppComponentPeer p) { return p.drain(); };
    constexpr auto kOk = VppError::VPP_OK, kBad = VppError::VPP_ERR_PARAM;
    for (const Row& row : {
             Row{"", "reconfigure", kOk, reconfig, "failed to reconfig vpp"},
             Row{"", "drain", kOk, drain, "failed to drain vpp"},
             Row{"", "", kBad, reconfig, "processReconfig_l: vpp answered with an error"},
             Row{"reconfigure", "", kOk, reconfig, "processReconfig_l: no answer from vpp"},
             Row{"drain", "", kOk, drain, "processDrainDone_l: no answer from vpp"},
         }) {
        SCOPED_TRACE(row.message);
        renew();
        session().results[row.fails] = VppError::VPP_ERR;
        session().silent = {row.silent};
        session().reconfigStatus = row.status;
        enableAndConfig(64, 64, {1, 0, 1, 0});
        if (row.silent[0] != 0) peer().setWaitLimit(std::chrono::milliseconds(50));
        EXPECT_FALSE(row.run(peer()));
        EXPECT_EQ(log.errors(row.message), 1);
    }
    renew();
    enableAndConfig(64, 64, {1, 0, 1, 0});
    EXPECT_TRUE(peer().drain());
}

TEST_F(Stream, AFlushNeedsBothPortsAndSurvivesStrayEvents) {
    enableAndConfig(64, 64, {1, 0, 1, 0});
    session().silent = {"flush0"};
    peer().setWaitLimit(std::chrono::milliseconds(50));
    vpp->flushsync();
    EXPECT_EQ(vpp->state(), VppComponent::ERROR);
    EXPECT_EQ(log.errors("processFlush_l: no answer from vpp"), 1);
    // Answers that are late, repeated or unsolicited. Every port number but 0 means the output
    // port.
    VppError result = VppError::VPP_ERR;
    for (const int32_t port : {0, 0, 1, 7})
        (void)session().callbacks()->eventFlushDone({port}, &result);
    (void)session().callbacks()->eventReconfigDone({}, &result);
    (void)session().callbacks()->eventDrainDone(&result);
    session().silent = {"flush0", "flush1", "drain"};
    EXPECT_FALSE(peer().drain()) << "an answer from before is not an answer";
}

TEST_F(Stream, AFlushLetsAPendingStartFinish) {
    makeEnabled();
    std::latch flushing(1);
    session().onCall = [&](const std::string& call) {
        if (call != "open") return;
        flushing.wait();
        for (int i = 0; i < 1000; ++i)
            std::this_thread::yield();
        EXPECT_EQ(log.count("flushsync"), 0) << "must not meet the start";
    };
    vpp->config(64, 64, kRgba, {1, 0, 1, 0}, false);
    flushing.count_down();
    vpp->flushsync();
    EXPECT_EQ(vpp->state(), VppComponent::IDLE);
    EXPECT_EQ(lastCalls(3), (Strings{"open", "flush0", "flush1"}));
}

}  // namespace
}  // namespace qoz::test
