// SPDX-License-Identifier: Apache-2.0
// Tests of construction, messages and state, of finding the service, of enable() and disable(), and
// of the callback object.
#include <host/platform/ServiceRegistry.h>

#include <array>
#include <latch>

#include "base/Log.h"
#include "support/Fixture.h"

namespace qoz::test {
namespace {

using vpp::VppError;

class Session : public ComponentTest {};

TEST_F(Session, DiagnosticsNeedBothGateBits) {
    using Row = std::pair<const char*, bool>;
    for (const auto& [flags, open] :
         {Row{"", false}, Row{"1", false}, Row{"20", false}, Row{"0x20", false}, Row{"21", true},
          Row{" 0x21", true}, Row{"ff", true}, Row{"3f", true}, Row{"1000000000000de", false},
          Row{"ff00000021zz", true}}) {
        log.clear();
        make(flags);
        vpp.reset();
        EXPECT_EQ(log.countPrefixed(ANDROID_LOG_WARN), open ? 2 : 0) << flags;
        EXPECT_EQ(log.count("status: UNINIT", ANDROID_LOG_DEBUG), 1) << flags;
    }
    int evaluated = 0;
    for (const uint32_t flags : {0U, 1U, 0x20U, 0xDEU, 0x21U}) {
        const android::SessionLog mLog(flags, "gate", nullptr);
        VPP_LOGI("%d", ++evaluated);
    }
    EXPECT_EQ(evaluated, 1) << "a closed gate evaluates no argument";
}

TEST_F(Session, LimitsAreParsedOrConstructionThrows) {
    host::setProperty("vendor.qoz.maxh", "1080");
    for (const std::string text : {"", "0", "4294967296", " +1920px"}) {
        host::setProperty("vendor.qoz.maxw", text);
        make();
        EXPECT_EQ(peer().needDownscale(4000, 4000), text == " +1920px") << text;
    }
    for (const char* name : {"vendor.qoz.maxw", "vendor.qoz.maxh", "vendor.qoz.log.msg"}) {
        host::clearProperties();
        host::setProperty(name, "xyz");
        EXPECT_THROW(VppComponent(), std::invalid_argument) << name;
        host::setProperty(name, "99999999999999999999");
        EXPECT_THROW(VppComponent(), std::out_of_range) << name;
    }
}

TEST_F(Session, ProcessSaysWhatItWasGiven) {
    make("0");
    std::vector<QOZBufferInfo> empty;
    std::vector<QOZBufferInfo> one(1);
    QOZBufferInfo output{0, buffer(16, 16, kNv12), nullptr, 0, {}};
    log.clear();
    EXPECT_EQ(vpp->process(nullptr, nullptr), 2);
    EXPECT_EQ(vpp->process(&empty, nullptr), 2);
    EXPECT_EQ(vpp->processBuffer(nullptr, nullptr), 1);
    EXPECT_EQ(log.countPrefixed(ANDROID_LOG_FATAL), 0);
    EXPECT_EQ(vpp->process(&one, &output), 1);
    char both[128];
    snprintf(both, sizeof both, "processBuffer:pSrcBufferInfo = %p, pDstBufferInfo = %p ",
             static_cast<void*>(&one), static_cast<void*>(&output));
    EXPECT_EQ(log.errors(both), 1);
    // The component is not enabled, so it refuses the buffers and does not return them.
    EXPECT_EQ(vpp->process(&empty, &output), 1);
    EXPECT_EQ(vpp->process(&one, nullptr), 1);
    EXPECT_EQ(log.errors("processBuffer: component is not enabled"), 1);
    EXPECT_EQ(log.errors("processBuffer: INVALID INPUT !"), 1);
    EXPECT_TRUE(client.done().empty());
}

TEST_F(Session, AStateWithoutASessionEndsQuietly) {
    make();
    peer().setStatus(VppComponent::ACTIVE);
    vpp->disable();
    EXPECT_EQ(vpp->state(), VppComponent::UNINIT);
}

// Each operation in each state has the expected result and leads to the expected state.
TEST_F(Session, EachOperationInEachState) {
    using enum VppComponent::status;
    using State = VppComponent::status;
    const std::map<char, std::function<int()>> operations{
        {'e', [&] { return enable(); }},
        {'c',
         [&] {
             vpp->config(kW, kH, kRgba, {1, 0, 1, 0}, true);
             (void)vpp->isInputPortEnabled(kW, kH, kRgba);  // only the first config() waits
             return 0;
         }},
        {'o', [&] { return processOutput(1, nv12()); }},
        {'s', [&] { return processSource(1, frame(), 1000); }},
        {'f', [&] { return vpp->flushsync(), 0; }},
        {'p', [&] { return vpp->isInputPortEnabled(kW, kH, kRgba); }},
        {'d', [&] { return vpp->disable(), 0; }},
    };
    struct Row {
        const char* fails;   // the call that the service refuses
        const char* before;  // operations that lead to `state`
        State state;
        // The results of enable, config, output, source, flush and port, and the states afterwards.
        const char* results;
        std::array<State, 6> after;
    };
    constexpr auto U = UNINIT, I = INIT, A = ACTIVE, D = IDLE, E = ERROR;
    const Row rows[] = {
        {"", "", U, "101100", {I, U, U, U, U, U}},
        {"", "e", I, "000100", {I, A, A, I, I, I}},
        {"", "ec", A, "000001", {A, A, A, A, D, A}},
        {"", "ecf", D, "000000", {D, A, A, D, D, D}},
        {"", "ecd", U, "101100", {I, U, U, U, U, U}},
        {"initSession", "e", E, "001100", {E, E, E, E, E, E}},
        {"setCtrlFrc", "ec", E, "000100", {E, A, E, E, E, E}},
        {"flush0", "ecf", E, "000000", {E, A, E, E, E, E}},
    };
    for (const Row& row : rows) {
        for (size_t i = 0; i < row.after.size(); ++i) {
            const char operation = "ecosfp"[i];
            SCOPED_TRACE(testing::Message() << operation << " after \"" << row.before
                                            << "\" where \"" << row.fails << "\" fails");
            renew();
            make();
            session().results[row.fails] = VppError::VPP_ERR_HW;
            for (const char* before = row.before; *before != 0; ++before)
                operations.at (*before)();
            session().results.clear();
            ASSERT_EQ(vpp->state(), row.state);
            EXPECT_EQ(operations.at(operation)(), row.results[i] - '0');
            EXPECT_EQ(vpp->state(), row.after[i]);
            operations.at('d')();
            EXPECT_EQ(vpp->state(), UNINIT);
        }
    }
}

TEST_F(Session, ASecondEnableLeavesTheFirstSession) {
    makeEnabled();
    Recorder other;
    EXPECT_FALSE(vpp->enable("other", &other, false));
    EXPECT_EQ(log.errors("previous cmp in not uninit"), 1);
    EXPECT_EQ(session().calls(), Strings{"initSession"});
    vpp->disable();
    EXPECT_EQ(log.count("status: UNINIT->INIT"), 0) << "not asked for";
    ASSERT_TRUE(enable(true)) << "again after disable";
    vpp->disable();
    EXPECT_EQ(log.count("status: UNINIT->INIT", ANDROID_LOG_DEBUG), 1);
    EXPECT_EQ(log.count("status: INIT->UNINIT", ANDROID_LOG_DEBUG), 1);
}

TEST_F(Session, AnAbsentServiceIsLookedUp36Times) {
    service->unregister();
    make();
    const auto before = std::chrono::steady_clock::now();
    EXPECT_FALSE(enable());
    EXPECT_GE(std::chrono::steady_clock::now() - before, 35 * std::chrono::milliseconds(40));
    for (const char* text :
         {"sleep to get interface. Attempt (1 + 1)", "sleep to get interface. Attempt (1 + 35)",
          "Couldn't acquire vppService after (1 + 35) attempts!!!", "unable to get vpp service"}) {
        EXPECT_EQ(log.count(text), 1) << text;
    }
    EXPECT_EQ(log.count("sleep to get interface. Attempt (1 + 36)"), 0);
    EXPECT_EQ(vpp->state(), VppComponent::UNINIT);
    const size_t threads = countThreads();
    EXPECT_FALSE(enable());
    EXPECT_EQ(countThreads(), threads) << "one thread waits for one service";
    log.clear();
    log.onLine = [this](const std::string& text) {
        if (text == "sleep to get interface. Attempt (1 + 3)") service->registerAgain();
    };
    EXPECT_TRUE(enable());
    log.onLine = nullptr;
    EXPECT_EQ(log.count("acquired vppservice after (1 + 3) attempts"), 1);
}

TEST_F(Session, ABinderOfAnotherKindIsRetriedWithoutSleep) {
    service->unregister();
    const std::string name = ScriptedService::instance();
    host::addService(name, service->next->asBinder());
    make();
    EXPECT_FALSE(enable());
    EXPECT_EQ(log.count("sleep to get interface. Attempt (1 + 1)"), 0);
    EXPECT_EQ(log.count("successfully get interface: " + name), 35);
    host::removeService(name);
}

TEST_F(Session, WithoutASessionOrAnOwnerEnableFails) {
    make();
    const auto held = std::exchange(service->next, nullptr);
    EXPECT_FALSE(enable());
    EXPECT_EQ(log.errors("unable to get new session from vpp service"), 1);
    EXPECT_EQ(vpp->state(), VppComponent::UNINIT);
    service->next = held;
    EXPECT_TRUE(enable());
    VppComponent unowned;
    EXPECT_FALSE(unowned.enable("unowned", &client, false));
    EXPECT_EQ(log.errors("Cannot allocate IVppCallbacks"), 1);
}

TEST_F(Session, ARefusedSessionLeavesErrorUntilDisable) {
    make();
    session().results["initSession"] = VppError::VPP_ERR_RESOURCES;
    EXPECT_FALSE(enable());
    EXPECT_EQ(log.errors("failed to init vpp"), 1);
    EXPECT_EQ(vpp->state(), VppComponent::ERROR);
    EXPECT_FALSE(enable());
    vpp->config(64, 64, kRgba, {1, 0, 1, 0}, true);  // does not wait without a worker
    EXPECT_EQ(processOutput(0, buffer(64, 64, kNv12)), 1) << "nobody would bring it back";
    vpp->disable();
    EXPECT_EQ(vpp->state(), VppComponent::UNINIT);
    EXPECT_EQ(session().calls(), Strings{"initSession"}) << "not closed";
    EXPECT_EQ(processSource(0, buffer(64, 64, kRgba), 0), 1);
    session().results.clear();
    EXPECT_TRUE(enable());
}

TEST_F(Session, TheWorkerIsScheduledAndAnswers) {
    make();
    const size_t before = host::schedCalls().size();
    const auto start = std::chrono::steady_clock::now();
    ASSERT_TRUE(enable());
    EXPECT_LT(std::chrono::steady_clock::now() - start, std::chrono::seconds(2)) << "Init answered";
    const auto calls = host::schedCalls();
    ASSERT_EQ(calls.size(), before + 2);
    const host::SchedCall& own = calls[before];
    const host::SchedCall& cpus = calls[before + 1];
    EXPECT_EQ(std::tuple(own.call, own.policy), std::tuple("set_sched_policy", 1));
    EXPECT_EQ(log.count("VppOBDworkerThread started, name: VPPOBDWorker" + std::to_string(own.tid)),
              1);
    EXPECT_EQ(std::tuple(cpus.call, cpus.tid, cpus.policy), std::tuple("set_cpuset_policy", 0, 2));
    vpp->disable();
    EXPECT_EQ(log.count("VppOBDworkerThread exited"), 1);
}

TEST_F(Session, DisableWaitsForAStartAndGoesOnWhenCloseFails) {
    makeEnabled();
    session().onCall = [&](const std::string& call) {
        const auto disabling = [this] { return log.count("Wait for VPP start complete .. ") > 0; };
        EXPECT_TRUE(call != "open" || eventually(disabling));
    };
    session().results["close"] = VppError::VPP_ERR_HW;
    vpp->config(64, 64, kRgba, {1, 0, 0, 0}, false);
    vpp->disable();
    EXPECT_EQ(lastCalls(3), (Strings{"open", "close", "terminateSession"}));
    EXPECT_EQ(log.count("vppClose error=VPP_ERR_HW"), 1);
    EXPECT_EQ(vpp->state(), VppComponent::UNINIT);
}

TEST_F(Session, DisableGoesOnWithoutAStartThatNeverEnds) {
    makeEnabled();
    std::latch closed(1);
    session().onCall = [&](const std::string& call) {
        if (call == "setParameter1") closed.wait();
        if (call == "close") closed.count_down();
    };
    vpp->config(64, 64, kRgba, {1, 0, 0, 0}, false);
    vpp->disable();  // polls 600 times, 2 ms apart, then closes, which ends the start
    EXPECT_EQ(log.count("Wait for VPP start complete .. "), 600);
    EXPECT_EQ(std::ranges::count(lastCalls(4), "open"), 0) << "it is not opened again";
    EXPECT_EQ(vpp->state(), VppComponent::UNINIT);
    EXPECT_FALSE(peer().startPending());
}

// An output buffer makes another thread start the session. disable() must not release the session
// while that start is in progress, however long the service takes.
TEST_F(Session, DisableOutlastsAStartOnAnotherThread) {
    makeEnabled();
    peer().setWaitLimit(std::chrono::milliseconds(50));
    Gate start;
    session().onCall = [&](const std::string& call) {
        if (call == "open") start.hold();
    };
    std::thread starter([this] { (void)processOutput(0, nv12()); });
    start.inside.wait();
    std::thread disabler([this] { vpp->disable(); });
    ASSERT_TRUE(eventually([this] { return log.count("component thread is terminated") == 1; }));
    start.release.count_down();
    starter.join();
    disabler.join();
    EXPECT_EQ(vpp->state(), VppComponent::UNINIT);
}

// One thread queues sources while another queues output buffers, which try to start the session.
TEST_F(Session, SourcesAndStartsDoNotMeet) {
    makeEnabled();
    session().results["setParameter1"] = VppError::VPP_ERR_HW;  // every start fails, in INIT
    std::thread starter([this] {
        for (int n = 0; n < 50; ++n)
            (void)processOutput(n, nv12());
    });
    const auto source = frame();
    for (int n = 0; n < 50; ++n)
        (void)processSource(0, source, n * 1'000'000, ConfigParams{1, 0, n % 4U, 0});
    starter.join();
    EXPECT_EQ(vpp->state(), VppComponent::INIT);
}

TEST_F(Session, CallbacksAnswerOkWhateverTheyAreGiven) {
    makeEnabled();
    auto* callbacks = session().callbacks();
    EXPECT_TRUE(callbacks->eventDrainDone(nullptr).isOk());
    EXPECT_TRUE(callbacks->eventError(VppError::VPP_ERR_FATAL, nullptr).isOk());
    EXPECT_TRUE(callbacks->eventFlushDone({}, nullptr).isOk());
    EXPECT_TRUE(callbacks->eventReconfigDone({}, nullptr).isOk());
    EXPECT_TRUE(callbacks->inputBufferDone({}, nullptr).isOk());
    EXPECT_TRUE(callbacks->outputBufferDone({}, nullptr).isOk());
    for (const char* name : {"eventDrainDone", "eventError", "eventFlushDone", "eventReconfigDone",
                             "inputBufferDone", "outputBufferDone"}) {
        EXPECT_EQ(log.errors(std::string(name) + ": invalid ptr"), 1) << name;
    }
    EXPECT_TRUE(client.done().empty());
    VppError result = VppError::VPP_ERR;
    EXPECT_TRUE(callbacks->eventError(VppError(77), &result).isOk());
    EXPECT_EQ(result, VppError::VPP_OK);
    EXPECT_EQ(toString(VppError(10)) + toString(VppError(-1)), "10-1");
    EXPECT_EQ(vpp->state(), VppComponent::INIT);
}

TEST_F(Session, TheLastReleaseDoesWhatDisableDoes) {
    enableAndConfig(64, 64, {1, 0, 0, 0});
    const std::weak_ptr<VppComponent> watched = vpp;
    vpp.reset();
    ASSERT_FALSE(watched.expired()) << "the session still holds it";
    // The thread that sends this event may hold the last reference.
    session().send([](vpp::IVppCallbacks&, VppError*) {});
    (void)session().terminateSession();
    EXPECT_TRUE(eventually([&] { return lastCalls(2) == Strings{"close", "terminateSession"}; }));
}

// The client releases its reference from within onBufferDone, after the session has released its
// own. The worker then holds the last reference and destroys the component after the callback.
TEST_F(Session, AReleaseInsideACallbackIsSafe) {
    enableAndConfig(64, 64, {1, 0, 0, 0});
    const std::weak_ptr<VppComponent> watched = vpp;
    std::latch returned(1);
    client.onDone = [&](const Done&) {
        returned.wait();
        (void)session().terminateSession();
        vpp.reset();
    };
    session().returnOutput(static_cast<int32_t>(0x80000003), 5, 1);
    returned.count_down();
    ASSERT_TRUE(eventually([&] { return watched.expired(); }));
    EXPECT_EQ(client.done(), (std::vector<Done>{{0, 3, 1, 5}}));
}

}  // namespace
}  // namespace qoz::test
