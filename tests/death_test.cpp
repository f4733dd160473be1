// SPDX-License-Identifier: Apache-2.0
// Tests with a service that dies, does not answer, answers from within a call, never stops
// returning buffers, or belongs to a previous session. Every wait must end, and every buffer must
// be returned once.
#include <algorithm>
#include <atomic>
#include <thread>

#include "support/Fixture.h"

namespace qoz::test {
namespace {

using namespace std::chrono_literals;
using vpp::VppError;
using vpp::VppPort;

class Death : public ComponentTest {
  protected:
    static int64_t outputCookie(int32_t slot) {
        return static_cast<int32_t>(0x80000000U | static_cast<uint32_t>(slot));
    }
    static std::chrono::milliseconds timed(const std::function<void()>& operation) {
        const auto begin = std::chrono::steady_clock::now();
        operation();
        return std::chrono::duration_cast<std::chrono::milliseconds>(
            std::chrono::steady_clock::now() - begin);
    }

    // Queues output buffers 1 and 2, a client's target (slot 40) and an unconverted source (41).
    void queueOneOfEach() {
        ASSERT_EQ(processOutput(1, nv12()), 0);
        ASSERT_EQ(processOutput(2, nv12()), 0);
        ASSERT_EQ(process({{0, frame(), {}, 1000, {}}, {40, nv12(), {}, 0, {}}}), 0);
        ASSERT_EQ(process({{41, nv12(), {}, 2000, {}}}), 0);
        ASSERT_EQ(client.done(0), std::vector<Done>{});
    }
    std::vector<Done> sortedOutputs() const {
        auto all = client.done(0);
        std::ranges::sort(all, {}, &Done::slot);
        return all;
    }
    const std::vector<Done> kAllBack{{0, 1, 0, 0}, {0, 2, 0, 0}, {0, 40, 0, 0}, {0, 41, 0, 0}};
};

TEST_F(Death, EndsEveryWaitAndGivesEverythingBackOnce) {
    const std::pair<const char*, std::function<void()>> waits[] = {
        {"flush1", [this] { vpp->flushsync(); }},
        {"reconfigure", [this] { processSource(5, frame(96, 80), 3'000'000); }},
        {"drain", [this] { EXPECT_FALSE(peer().drain()); }},
    };
    for (const auto& [call, wait] : waits) {
        SCOPED_TRACE(call);
        renew();
        startPlain();
        peer().setWaitLimit(2 * kSoon);  // so long that only the death can end a wait in time
        queueOneOfEach();
        session().silent = {call};
        std::thread killer;
        session().onCall = [&, awaited = std::string(call)](const std::string& made) {
            if (made == awaited) killer = std::thread([&] { session().die(); });
        };
        EXPECT_LT(timed(wait), kSoon);
        killer.join();
        ASSERT_TRUE(client.waitFor(4));
        EXPECT_EQ(sortedOutputs(), kAllBack);
        EXPECT_EQ(log.errors("the vpp service has died"), 1);
        // Buffers that are queued after the death are taken and returned at once.
        client.clear();
        const bool flushed = std::string(call) == "flush1";
        EXPECT_EQ(vpp->state(), flushed ? VppComponent::ERROR : VppComponent::ACTIVE);
        const auto later = buffer(vpp->expectedOutputWidth(), vpp->expectedOutputHeight(), kNv12);
        EXPECT_EQ(processOutput(7, later), 0);
        ASSERT_TRUE(client.waitFor(1));
        EXPECT_EQ(client.done(0), (std::vector<Done>{{0, 7, 0, 0}}));
        EXPECT_LT(timed([this] { vpp->flushsync(); }), kSoon);
        EXPECT_EQ(vpp->state(), VppComponent::ERROR);
        EXPECT_LT(timed([this] { vpp->disable(); }), kSoon);
        EXPECT_EQ(vpp->state(), VppComponent::UNINIT);
        // A later session with a working service is not affected.
        service->next = ndk::SharedRefBase::make<ScriptedVpp>();
        ASSERT_TRUE(enable());
        vpp->config(kW, kH, kRgba, kTwice, true);
        EXPECT_TRUE(vpp->isInputPortEnabled(kW, kH, kRgba));
        EXPECT_EQ(processOutput(8, nv12()), 0);
        EXPECT_EQ(client.done(0).size(), 1) << "the new session has it";
    }
}

// The service dies during the call that queues a buffer. The buffer is returned once.
TEST_F(Death, MeetsAQueueing) {
    const std::pair<const char*, std::function<void()>> calls[] = {
        {"queueBuf1", [this] { EXPECT_EQ(processOutput(3, nv12()), 0); }},
        {"queueBuf0",
         [this] {
             EXPECT_EQ(process({{3, nv12(), {}, 9000, {}}}), 0);
         }},
        {"queueBuf0",
         [this] {
             EXPECT_EQ(process({{0, frame(), {}, 9000, {}}, {3, nv12(), {}, 0, {}}}), 0);
         }},
    };
    for (const auto& [call, queue] : calls) {
        SCOPED_TRACE(call);
        renew();
        startPlain();
        session().onCall = [&, hit = std::string(call)](const std::string& made) {
            if (made == hit) std::thread([this] { session().die(); }).join();
        };
        queue();
        ASSERT_TRUE(eventually([this] { return !client.done(0).empty(); }));
        vpp->disable();
        EXPECT_EQ(client.done(0), (std::vector<Done>{{0, 3, 0, 0}}));
    }
}

TEST_F(Death, OfASessionThatIsDeadAlready) {
    make();
    session().die();
    (void)enable();  // transport errors do not make it fail
    vpp->config(kW, kH, kRgba, kTwice, true);
    EXPECT_LT(timed([this] { vpp->flushsync(); }), 1s);
    vpp->disable();
    EXPECT_EQ(vpp->state(), VppComponent::UNINIT);
}

// A callback of the client may outlast the limits of disable() and enable(), so that a death is
// still being handled when the next session begins.
TEST_F(Death, OfThePreviousSessionEndsNoWait) {
    startPlain();
    peer().setWaitLimit(50ms);
    ASSERT_EQ(processOutput(1, nv12()), 0);
    Gate callback;
    client.onDone = [&](const Done& done) {
        if (done.slot == 1) callback.hold();
    };
    std::thread killer([&dying = session()] { dying.die(); });
    callback.inside.wait();
    vpp->disable();
    const auto previous = service->next;
    service->next = ndk::SharedRefBase::make<ScriptedVpp>();
    ASSERT_TRUE(enable());
    callback.release.count_down();
    killer.join();
    peer().setWaitLimit(kSoon);
    vpp->config(kW, kH, kRgba, kTwice, true);
    ASSERT_TRUE(vpp->isInputPortEnabled(kW, kH, kRgba));
    vpp->flushsync();
    EXPECT_EQ(vpp->state(), VppComponent::IDLE);
    EXPECT_EQ(log.errors("enable: an event of the previous session is still being handled"), 1);
}

// An operation ends at the limit even if several of its calls are not answered.
TEST_F(Death, WaitsOfOneOperationShareOneLimit) {
    enableAndConfig(kW, kH, kTwice);
    ASSERT_EQ(processSource(0, frame(), 1000), 0);
    session().silent = {"flush0", "flush1", "reconfigure"};
    constexpr auto kLimit = 1000ms;
    peer().setWaitLimit(kLimit);
    const auto took = timed([this] {
        (void)processSource(1, frame(96, 80), 2'000'000, ConfigParams{1, 0, 1, 2});
    });
    EXPECT_GE(took, kLimit);
    EXPECT_LT(took, 2 * kLimit) << "a size and a ratio are four answers";
}

// The client's callback is slow, and the service never stops returning output buffers.
TEST_F(Death, AFloodOfOutputsStopsNeitherFlushNorDisable) {
    startPlain();
    peer().setWaitLimit(300ms);
    client.onDone = [](const Done&) { std::this_thread::sleep_for(1ms); };
    std::atomic<bool> stop{false};
    const auto callbacks = session().callbackObject();
    std::thread flood([&] {
        for (int32_t n = 0; !stop; ++n) {
            vpp::VppBuffer returned;
            returned.cookie = outputCookie(n % 64);
            VppError result = VppError::VPP_OK;
            (void)callbacks->outputBufferDone(returned, &result);
            std::this_thread::sleep_for(100us);
        }
    });
    EXPECT_LT(timed([this] { vpp->flushsync(); }), 5s);
    EXPECT_LT(timed([this] { vpp->disable(); }), 5s);
    stop = true;
    flood.join();
    EXPECT_EQ(vpp->state(), VppComponent::UNINIT);
}

// An answer may arrive as a nested call, on the thread that is still inside the service's call. A
// service with a single thread may also answer the previous command during the next call.
TEST_F(Death, AnAnswerMayComeBeforeTheCallReturns) {
    const auto answer = [this](const std::string& call) {
        VppError result = VppError::VPP_ERR;
        auto* to = session().callbacks();
        if (call == "flush0") (void)to->eventFlushDone({0}, &result);
        if (call == "flush1") (void)to->eventFlushDone({1}, &result);
        if (call == "reconfigure") (void)to->eventReconfigDone({0}, &result);
        if (call == "drain") (void)to->eventDrainDone(&result);
    };
    for (const bool nested : {true, false}) {
        SCOPED_TRACE(nested ? "nested" : "the one before");
        renew();
        startPlain();
        if (nested) session().silent = {"flush0", "flush1", "reconfigure", "drain"};
        if (!nested) session().silent = {"flush0"};
        session().onCall = [&](const std::string& call) {
            if (nested) return answer(call);
            if (call == "flush1") std::thread([&] { answer("flush0"); }).join();
        };
        EXPECT_TRUE(peer().drain());
        ASSERT_EQ(processSource(1, frame(96, 80), 2'000'000), 0);
        EXPECT_EQ(session().ports().back().width, 96);
        vpp->flushsync();
        EXPECT_EQ(vpp->state(), VppComponent::IDLE);
        EXPECT_EQ(log.texts(ANDROID_LOG_ERROR), Strings{});
    }
}

// A buffer, too, may be returned by a nested call, or by a service with a single thread before it
// answers. A buffer that the client queues in that callback is refused, because the call that is in
// progress holds the queue.
TEST_F(Death, AReturnMayComeBeforeTheQueueingIsAnswered) {
    for (const bool nested : {true, false}) {
        SCOPED_TRACE(nested ? "nested" : "on the service's thread");
        renew();
        startPlain();
        std::atomic<int> result{-1};
        client.onDone = [&](const Done& done) {
            if (done.slot == 40) result = processOutput(4, nv12());
        };
        session().onCall = [&](const std::string& call) {
            if (call != "queueBuf0") return;
            if (nested) return session().returnInput(40, 9);
            std::thread([this] { session().returnInput(40, 9); }).join();
        };
        ASSERT_EQ(process({{0, frame(), {}, 9000, {}}, {40, nv12(), {}, 0, {}}}), 0);
        EXPECT_EQ(result, 1);
        EXPECT_EQ(client.done(0), (std::vector<Done>{{0, 40, 0, 0}}));
        EXPECT_EQ(processOutput(5, nv12()), 0);
        EXPECT_EQ(queuedOn(VppPort::OUTPUT).size(), 1);
    }
}

TEST_F(Death, ThePreviousSessionIsNotHeard) {
    startPlain();
    ASSERT_EQ(processOutput(1, nv12()), 0);
    const auto previous = session().callbackObject();
    vpp->disable();
    service->next = ndk::SharedRefBase::make<ScriptedVpp>();
    ASSERT_TRUE(enable());
    vpp->config(kW, kH, kRgba, kTwice, true);
    ASSERT_TRUE(vpp->isInputPortEnabled(kW, kH, kRgba));
    ASSERT_EQ(processOutput(2, nv12()), 0);
    log.clear();
    VppError result = VppError::VPP_OK;
    vpp::VppBuffer returned;
    for (const int32_t slot : {1, 2}) {
        returned.cookie = outputCookie(slot);
        (void)previous->outputBufferDone(returned, &result);
        returned.cookie = slot;
        (void)previous->inputBufferDone(returned, &result);
    }
    EXPECT_EQ(log.texts({}).empty(), false) << "each is dropped with a message";
    session().silent = {"flush0", "flush1", "drain"};
    peer().setWaitLimit(100ms);
    session().onCall = [&](const std::string& call) {
        if (call == "drain") (void)previous->eventDrainDone(&result);
        if (call == "flush1") {
            (void)previous->eventFlushDone({0}, &result);
            (void)previous->eventFlushDone({1}, &result);
        }
    };
    EXPECT_FALSE(peer().drain());
    vpp->flushsync();
    EXPECT_EQ(vpp->state(), VppComponent::ERROR) << "nobody of this session has answered";
    EXPECT_TRUE(client.done(0).empty());
}

TEST_F(Death, ASilentServiceIsGivenSoMuchAndNoMore) {
    startPlain();
    const auto source = frame();
    constexpr int kMost = 128;
    for (int n = 0; n < kMost; ++n)
        ASSERT_EQ(processSource(n, source, (n + 1) * 1000), 0) << n;
    const auto live = host::counters().graphicBuffersLive;
    for (int n = 0; n < 10; ++n)
        EXPECT_EQ(processSource(500 + n, source, (kMost + n + 1) * 1000), 1);
    EXPECT_EQ(host::counters().graphicBuffersLive, live);
    EXPECT_EQ(client.done(1).size(), kMost) << "what is refused stays the client's";
    session().returnInput(0x10000, 1);
    EXPECT_EQ(processSource(1, source, 200'000), 0) << "there is room again";
}

}  // namespace
}  // namespace qoz::test
