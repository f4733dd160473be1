// SPDX-License-Identifier: Apache-2.0
// Tests of the simulated service: permitted calls in each state, returned buffers, and their order.
#include <android/binder_ibinder.h>

#include <atomic>
#include <future>

#include "support/VppSessionClient.h"

namespace qoz::test {
namespace {

std::string output(int id, uint64_t time) {
    return "output " + std::to_string(id) + " at " + std::to_string(time) + ", 4608 bytes";
}

TEST_F(VppServiceTest, SpacesInBetweenFramesEvenlyAndInOrder) {
    constexpr uint64_t kHuge = uint64_t{1} << 61;
    using Times = std::vector<uint64_t>;
    const Times even{1000, 2000, 3000};
    const std::tuple<Factors, Times, Times> cases[] = {
        {{{0, 2}}, even, {1000, 1333, 1666, 2000, 2333, 2666, 3000}},
        {{{0, 3}}, {0, kHuge * 4}, {0, kHuge, kHuge * 2, kHuge * 3, kHuge * 4}},
        // The factor of a segment applies from the frame with its start timestamp on, whatever the
        // order of the list.
        {{{2000, 1}, {0, 0}}, even, {1000, 2000, 2500, 3000}},
        {{{0, 1}, {2000, 0}}, even, {1000, 1500, 2000, 3000}},
        {{{2001, 3}, {0, 1}}, even, {1000, 1500, 2000, 2500, 3000}},
        // No frames are interpolated before a timestamp that does not increase.
        {{{0, 1}}, {1000, 1000, 3000}, {1000, 1000, 2000, 3000}},
        {{{0, 1}}, {3000, 1000, 2000}, {3000, 1000, 1500, 2000}},
    };
    for (const auto& [factors, sources, outputs] : cases) {
        openAt(0);
        steer(factors);
        Lines wanted;
        for (const uint64_t time : outputs)
            wanted.push_back(output(static_cast<int>(wanted.size()), time));
        feed(static_cast<int>(wanted.size()), 0);
        for (const uint64_t time : sources)
            source(0, time);
        ASSERT_TRUE(mRecorder->await("output", wanted.size()));
        flush(VppPort::INPUT);
        ASSERT_TRUE(mRecorder->await("flush"));
        EXPECT_EQ(mRecorder->seen("output"), wanted);
        EXPECT_EQ(mRecorder->seen("input").size(), sources.size());
    }
}

TEST_F(VppServiceTest, FactorGivenAfterAFrameHoldsFromThatFrame) {
    openAt(0);
    const auto between = frame(kSmall), older = frame(kSmall, flat(200));
    queueOutput(0);
    queueOutput(1, between);
    queueOutput(2);
    source(0, 1000, older);
    ASSERT_TRUE(mRecorder->await("input")) << "nothing is wanted from it yet";
    paint(older, flat(0), flat(0));  // the source has been returned, so the client may change it
    ASSERT_EQ(steer({{0, 0}, {1000, 1}}), 0);
    source(1, 4000);
    ASSERT_TRUE(mRecorder->await(output(2, 4000)));
    EXPECT_EQ(mRecorder->seen("output 1"), Lines{output(1, 2500)});
    EXPECT_NEAR(yuvAt(between, 20, 20)[0], 100, 1);

    // A new segment does not change earlier intervals: one that a queued source has ended keeps its
    // factor even if none of its frames has been written yet.
    source(4, 5000);
    source(5, 6000);
    ASSERT_EQ(steer({{1000, 3}}), 0);
    for (int id = 4; id < 8; ++id)
        queueOutput(id);
    ASSERT_TRUE(mRecorder->await(output(7, 6000)));
    EXPECT_EQ(mRecorder->seen("output 6"), Lines{output(6, 5500)});

    // With the AIS control alone, frames are only scaled.
    vpp::VppCtrlAis ais;
    ais.mode = 2;
    ASSERT_EQ(ask(&IVpp::setCtrlAis, ais), 0);
    queueOutput(3);
    source(2, 7000);
    ASSERT_TRUE(mRecorder->await(output(3, 7000)));
}

TEST_F(VppServiceTest, WaitsForQueuedOutputsAndDrainsAsFarAsTheyGo) {
    constexpr Size kLarge{1920, 1080};  // so large that a frame takes some time
    const auto large = [&] { return makeBuffer(kLarge.width, kLarge.height, kNv12Vemo); };
    openAt(3, kLarge, kLarge);
    for (int i = 0; i < 3; ++i)
        source(i, 1000 + static_cast<uint64_t>(i), large());
    ASSERT_EQ(ask(&IVpp::drain), 0);
    ASSERT_TRUE(mRecorder->await("drain"));
    EXPECT_EQ(mRecorder->seen().size(), 1U) << "nothing to write into";
    for (int i = 0; i < 7; ++i)
        queueOutput(i, large());
    ASSERT_EQ(ask(&IVpp::drain), 0);
    ASSERT_TRUE(mRecorder->await("drain", 2));
    EXPECT_EQ(mRecorder->seen("output").size(), 7U);
    EXPECT_EQ(mRecorder->seen("input").size(), 1U) << "the second interval is not complete";
}

TEST_F(VppServiceTest, FlushReturnsWhatItHoldsBeforeItsEventAndStartsAfresh) {
    openAt(1);
    queueOutput(9);
    feed(0, 3);
    ASSERT_TRUE(mRecorder->await("output"));
    flush(VppPort::INPUT);
    ASSERT_TRUE(mRecorder->await("flush"));
    feed(2, 0);
    flush(VppPort::OUTPUT);
    ASSERT_TRUE(mRecorder->await("flush", 2));
    EXPECT_EQ(mRecorder->seen(),
              (Lines{output(9, 1000), "input 0 at 1000, 8192 bytes", "input 1 at 2000, 8192 bytes",
                     "input 2 at 3000, 8192 bytes", "flush 0", "unfilled 0 at 0, 0 bytes",
                     "unfilled 1 at 0, 0 bytes", "flush 1"}));
    queueOutput(4);
    source(4, 9000);
    ASSERT_TRUE(mRecorder->await(output(4, 9000))) << "no interval across a flush";
}

TEST_F(VppServiceTest, ReconfigureEmptiesBothPortsThenUsesTheNewSizes) {
    openAt(0);
    feed(2, 0);
    ASSERT_EQ(ask(&IVpp::reconfigure, port({32, 32}), port({96, 64})), 0);
    ASSERT_TRUE(mRecorder->await("reconfig 0"));
    EXPECT_EQ(mRecorder->seen(),
              (Lines{"unfilled 0 at 0, 0 bytes", "unfilled 1 at 0, 0 bytes", "reconfig 0"}));
    EXPECT_NE(queueOutput(2), 0) << "an output of the old size is too small now";
    EXPECT_NE(queueOutput(2, frame({96, 96})), 0) << "one too large is laid out for another size";
    const auto to = frame({96, 64});
    EXPECT_EQ(queueOutput(2, to), 0);
    const Picture ramp = [](int x, int) { return 100 + x; };
    source(0, 1000, frame({32, 32}, ramp, flat(77)));
    ASSERT_TRUE(mRecorder->await("output 2 at 1000, 9216 bytes"));
    EXPECT_TRUE(near(yuvAt(to, 48, 60), {116, 77, 178}, 2)) << "the middle of the ramp, scaled";

    // The port is configured again while the service holds a source. Nothing is interpolated
    // between frames of different sizes.
    ASSERT_EQ(steer({{0, 1}}), 0);
    ASSERT_EQ(ask(&IVpp::setParameter, VppPort::INPUT, port({48, 40})), 0);
    queueOutput(3, to);
    source(1, 2000, frame({48, 40}));
    ASSERT_TRUE(mRecorder->await("output 3 at 2000"));
}

TEST_F(VppServiceTest, RefusesBadRecordsAndKeepsNothingOfThem) {
    openAt(1);
    const auto good = frame(kSmall), small = frame({32, 32}), field = makeField(64, 48);
    const VppPort in = VppPort::INPUT, out = VppPort::OUTPUT;
    const std::pair<VppPort, std::function<void(VppBuffer&)>> cases[] = {
        {static_cast<VppPort>(2), [](VppBuffer&) {}},
        // Pixels must have one descriptor, with enough memory.
        {in, [](VppBuffer& b) { b.pixelHandle.fds.clear(); }},
        {in, [&](VppBuffer& b) { share(good, &b.pixelHandle); }},
        {in, [](VppBuffer& b) { b.pixelHandle.ints.push_back(1); }},
        {in, [](VppBuffer& b) { b.pixelHandle.fds[0].set(-1); }},
        {in, [](VppBuffer& b) { b.pixelHandle.fds[0].set(open("/dev/null", O_CLOEXEC)); }},
        {in, [&](VppBuffer& b) { b.pixelHandle = record(small, 1, 1).pixelHandle; }},
        {in, [](VppBuffer& b) { b.pixelAllocLen += 1; }},
        {out, [](VppBuffer& b) { b.pixelAllocLen = 4607; }},
        {out, [](VppBuffer& b) { b.pixelOffset = 8192 - 4607; }},
        {in, [](VppBuffer& b) { b.pixelOffset = UINT32_MAX; }},
        {in, [](VppBuffer& b) { b.pixelFilledLen = 0; }},
        {in, [](VppBuffer& b) { b.pixelFilledLen += 1; }},
        {out, [](VppBuffer& b) { b.pixelFilledLen = 1; }},
        {in, [&](VppBuffer& b) { share(good, &b.auxHandle); }},
        // Side buffers are permitted only with sources, under known names, once each, and must be
        // large enough.
        {out, [&](VppBuffer& b) { attach(b, kForward, field); }},
        {in, [&](VppBuffer& b) { attach(b, "vpp.metabuf.mv", field); }},
        {in, [&](VppBuffer& b) { attach(b, kBackward, field).metaAllocLen = 47; }},
        {in, [&](VppBuffer& b) { attach(b, kHalf, good).metaAllocLen = 1151; }},
        {in, [&](VppBuffer& b) { attach(b, kForward, field).metaHandle = {}; }},
        {in, [&](VppBuffer& b) { attach(b, kHalf, good), attach(b, kHalf, good); }},
    };
    const int before = openDescriptors();
    for (size_t i = 0; i < std::size(cases); ++i) {
        VppBuffer buffer = record(good, cases[i].first == out ? kOutputBit : 1, 1000);
        cases[i].second(buffer);
        EXPECT_EQ(queue(cases[i].first, buffer), 5) << "case " << i;
        buffer = {};
        EXPECT_EQ(openDescriptors(), before) << "case " << i;
    }
    VppBuffer whole = record(good, 1, 1000);
    whole.metaBuffers.emplace_back();  // an empty entry is permitted
    EXPECT_EQ(queue(in, whole), 0);
}

TEST_F(VppServiceTest, HoldsItsClientToTheOrderOfThings) {
    using Answers = std::vector<int>;
    const auto size = [this](VppPort which, Size to, int wider = 0) {
        vpp::VppPortParam param = port(to);
        param.stride += wider;
        return ask(&IVpp::setParameter, which, param);
    };
    const auto init = [this](const std::shared_ptr<SessionRecorder>& with) {
        return ask(&IVpp::initSession, 0, with);
    };
    const auto onceOpen = [&] {
        return Answers{queueOutput(0), flush(VppPort::INPUT), ask(&IVpp::drain),
                       ask(&IVpp::reconfigure, port(kSmall), port(kSmall))};
    };
    const auto recorder = ndk::SharedRefBase::make<SessionRecorder>();
    mSession = newSession();
    EXPECT_EQ((Answers{ask(&IVpp::open), size(VppPort::INPUT, kSmall), steer({{0, 1}})}),
              Answers(3, 3));
    EXPECT_EQ((Answers{init(nullptr), init(recorder), init(recorder)}), (Answers{5, 0, 3}));
    EXPECT_EQ(size(VppPort::INPUT, kSmall), 0);
    EXPECT_EQ(ask(&IVpp::setCtrlVppMode, kFrameMode), 0);
    EXPECT_EQ(ask(&IVpp::open), 3) << "the output port has no size";
    EXPECT_EQ(onceOpen(), Answers(4, 3));
    EXPECT_EQ((Answers{size(VppPort::OUTPUT, {0, 8}), size(VppPort::OUTPUT, kSmall, 16)}),
              (Answers{5, 4}));
    EXPECT_EQ((Answers{steer({}), steer({{0, -1}}), steer({{-1, 1}})}), Answers(3, 5));
    EXPECT_EQ(size(VppPort::OUTPUT, kSmall), 0);
    EXPECT_EQ((Answers{ask(&IVpp::open), ask(&IVpp::open)}), Answers(2, 0));
    EXPECT_EQ((Answers{ask(&IVpp::close), ask(&IVpp::close)}), (Answers{0, 3}));
    EXPECT_EQ(onceOpen(), Answers(4, 3));
}

TEST_F(VppServiceTest, CountsMemoryThatIsQueuedWhileItIsHeld) {
    openAt(1);
    const auto pixels = frame(kSmall), field = makeField(kSmall.width, kSmall.height);
    const auto withField = [&](int id, uint64_t timestamp) {
        VppBuffer sent = record(frame(kSmall), id, timestamp);
        attach(sent, kForward, field);
        return queue(VppPort::INPUT, sent);
    };
    for (int round = 0; round < 2; ++round) {
        EXPECT_EQ(source(0, 1000, pixels), 0);
        EXPECT_EQ(withField(1, 2000), 0);
        EXPECT_EQ(withField(2, 2000), 0);
        EXPECT_EQ(takeQueuedTwice(), 0U) << "frames of one timestamp may share side buffers";
        EXPECT_EQ(withField(3, 3000), 0);
        EXPECT_EQ(takeQueuedTwice(), 1U);
        EXPECT_EQ(source(4, 4000, pixels), 0);
        EXPECT_EQ(takeQueuedTwice(), 1U);
        flush(VppPort::INPUT);
        ASSERT_TRUE(mRecorder->await("flush 0", static_cast<size_t>(round) + 1));
    }
    EXPECT_EQ(source(0, 1000, pixels), 0);
    EXPECT_EQ(queueOutput(0, pixels), 0);
    EXPECT_EQ(takeQueuedTwice(), 1U) << "on the other port";
}

TEST_F(VppServiceTest, OpensOnlyInTheFrameMode) {
    mSession = newSession();
    ASSERT_EQ(ask(&IVpp::initSession, 0, ndk::SharedRefBase::make<SessionRecorder>()), 0);
    for (const VppPort side : {VppPort::INPUT, VppPort::OUTPUT})
        ASSERT_EQ(ask(&IVpp::setParameter, side, port(kSmall)), 0);
    EXPECT_EQ(ask(&IVpp::open), 3);
    EXPECT_EQ(ask(&IVpp::setCtrlVppMode, kFrameMode - 1), 4);
    EXPECT_EQ(ask(&IVpp::open), 3);
    EXPECT_EQ(ask(&IVpp::setCtrlVppMode, kFrameMode), 0);
    EXPECT_EQ(ask(&IVpp::open), 0);
}

TEST_F(VppServiceTest, DeathEndsEveryCallAndLetsGoOfEverything) {
    openAt(1);
    feed(0, 3);
    static std::atomic<int> told;
    told = 0;
    AIBinder_DeathRecipient* const recipient =
        AIBinder_DeathRecipient_new([](void* by) { told += *static_cast<int*>(by); });
    int once = 1, never = 100;
    for (int* cookie : {&once, &never})
        ASSERT_EQ(AIBinder_linkToDeath(mSession->asBinder().get(), recipient, cookie), STATUS_OK);
    AIBinder_unlinkToDeath(mSession->asBinder().get(), recipient, &never);
    const std::weak_ptr<SessionRecorder> callbacks = std::exchange(mRecorder, nullptr);
    armFault({.operation = "drain", .kind = FaultKind::Late, .code = 3600 * 1000});
    std::thread sleeper([this] { EXPECT_EQ(ask(&IVpp::drain), -1) << "woken by the death"; });
    EXPECT_TRUE(eventually([] { return faultsFired() > 0; }));
    armFault({.operation = "flush", .kind = FaultKind::Die});
    EXPECT_EQ(flush(VppPort::INPUT), -1);
    EXPECT_EQ(queueOutput(0), -1) << "at once";
    EXPECT_EQ(newSession(), nullptr) << "no longer registered";
    sleeper.join();
    mService.reset();
    EXPECT_EQ(told, 1);
    EXPECT_EQ(AIBinder_linkToDeath(mSession->asBinder().get(), recipient, &once),
              STATUS_DEAD_OBJECT);
    AIBinder_DeathRecipient_delete(recipient);
    EXPECT_TRUE(callbacks.expired());
    EXPECT_EQ(ask(&IVpp::close), -1);
    EXPECT_EQ(counters().sessionsLive, 0U);
}

}  // namespace
}  // namespace qoz::test
