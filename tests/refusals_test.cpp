// SPDX-License-Identifier: Apache-2.0
// Tests of refused operations and of the state after a refusal: calls from within callbacks, fences
// that never signal, and a reconfiguration that the service refuses.
#include <client/LiveClient.h>
#include <sys/eventfd.h>

#include <algorithm>
#include <atomic>
#include <thread>

#include "support/Fixture.h"

namespace qoz::test {
namespace {

using vpp::VppError;
using vpp::VppPort;

constexpr uint32_t kW = 64;
constexpr uint32_t kH = 48;
constexpr int64_t kOutput3 = static_cast<int32_t>(0x80000003);

class Refusals : public ComponentTest {
  protected:
    size_t errorsAbout(const std::string& begin) const {
        const auto texts = log.texts(ANDROID_LOG_ERROR);
        return static_cast<size_t>(std::ranges::count_if(
            texts, [&](const auto& t) { return t.find(begin) != std::string::npos; }));
    }

    // Calls every operation in a callback. All are refused, except that an output buffer may be
    // queued: `mayQueue` is the expected result of that.
    void misuse(int32_t mayQueue) {
        EXPECT_FALSE(vpp->enable("again", &client, false));
        vpp->config(32, 32, kRgba, {1, 0, 0, 0}, true);
        vpp->flushsync();
        vpp->disable();
        EXPECT_EQ(processSource(9, frame(), 9'000'000), 1);
        EXPECT_EQ(processOutput(9, nv12()), mayQueue);
    }
};

// The rule holds in callbacks on the worker, on a binder thread, and on the client's own thread
// within process().
TEST_F(Refusals, FromWithinACallbackOnlyOutputBuffersAreTaken) {
    const std::pair<const char*, std::function<void()>> threads[] = {
        {"worker", [this] { session().returnOutput(kOutput3, 5, 1); }},
        {"binder", [this] { std::thread([this] { session().returnInput(3, 5); }).join(); }},
        {"client", [this] { EXPECT_EQ(processSource(3, frame(), 5000), 0); }},
    };
    for (const auto& [thread, callBack] : threads) {
        SCOPED_TRACE(thread);
        renew();
        startPlain();
        client.onDone = [this](const Done& done) {
            if (done.slot == 3) misuse(0);
        };
        callBack();
        ASSERT_TRUE(client.waitFor(1));
        EXPECT_EQ(vpp->state(), VppComponent::ACTIVE);
        for (const char* operation : {"enable", "config", "flushsync", "disable", "process"})
            EXPECT_GE(errorsAbout(std::string(operation) + ": called from within a callback"), 1)
                << operation;
        EXPECT_EQ(queuedOn(VppPort::OUTPUT).size(), 1);
        EXPECT_TRUE(vpp->isInputPortEnabled(kW, kH, kRgba)) << "config changed nothing";
        client.onDone = nullptr;
        vpp->flushsync();
        EXPECT_EQ(vpp->state(), VppComponent::IDLE);
    }
}

TEST_F(Refusals, WhileAFlushIsUnderWayACallbackKeepsItsBuffer) {
    startPlain();
    std::atomic<int> result{-1};
    client.onDone = [&](const Done& done) {
        if (done.slot == 3) result = processOutput(4, nv12());
    };
    // The answer to the flush arrives after the callback. If an operation in the callback waited
    // for the flush, both would wait until the limit.
    session().onCall = [&](const std::string& call) {
        if (call != "flush1") return;
        session().send([&](vpp::IVppCallbacks&, VppError*) {
            session().returnOutput(kOutput3, 0, 0);
            EXPECT_TRUE(eventually([&] { return result >= 0; }));
        });
    };
    vpp->flushsync();
    EXPECT_EQ(vpp->state(), VppComponent::IDLE);
    EXPECT_EQ(result, 1);
    EXPECT_EQ(client.done(0), (std::vector<Done>{{0, 3, 0, 0}})) << "slot 4 is still the client's";
    EXPECT_TRUE(queuedOn(VppPort::OUTPUT).empty());
}

TEST_F(Refusals, OutputsAreTakenBesideSources) {
    startPlain();
    constexpr int kRounds = 300;
    const auto source = frame(), output = nv12();
    std::thread outputs([&] {
        for (int n = 0; n < kRounds; ++n)
            EXPECT_EQ(processOutput(n % 64, output), 0);
    });
    for (int n = 0; n < kRounds; ++n) {
        ASSERT_EQ(processSource(n % 4, source, (n + 1) * 1000), 0);
        session().returnInput(0x10000 | n % 4, static_cast<uint64_t>(n + 1));
    }
    outputs.join();
    EXPECT_EQ(queuedOn(VppPort::OUTPUT).size(), kRounds);
    EXPECT_EQ(client.done(1).size(), kRounds);
}

TEST_F(Refusals, AnUnconvertedSourceWaitsForItsFenceToALimit) {
    startPlain();
    peer().setWaitLimit(std::chrono::milliseconds(50));
    const int fd = eventfd(0, EFD_CLOEXEC);
    const sp<android::Fence> fence(new android::Fence(fd));
    const auto source = nv12();
    EXPECT_EQ(process({{3, source, fence, 1000, {}}}), 1);
    EXPECT_EQ(errorsAbout("fence"), 1);
    EXPECT_TRUE(inputs().empty());
    EXPECT_TRUE(client.done().empty()) << "still the client's";
    ASSERT_EQ(eventfd_write(fd, 1), 0);
    EXPECT_EQ(process({{3, source, fence, 1000, {}}}), 0);
    EXPECT_EQ(inputs().size(), 1);
}

// Reconfigurations with the simulated service.
class RefusedReconfiguration : public ResourceTest {
  protected:
    host::VppService service;
    LogCapture log;
};

// If the converter cannot be configured, it is configured again for the next frame. A buffer
// without memory never reaches it.
TEST_F(Refusals, AConfigureThatFailsCostsItsFrameAlone) {
    enableAndConfig(64, 48, {1, 0, 1, 0});
    int refused = 0;
    for (const uint32_t width : {64U, 96U}) {
        host::armFault({.operation = "Configure"});
        for (int n = 1; n <= 4; ++n)
            refused += processSource(n, buffer(width, 48, kRgba), (width + n) * 1'000'000LL);
    }
    EXPECT_LE(refused, 2);
    const auto none = [] { return buffer(UINT32_MAX, UINT32_MAX, kNv12); };  // cannot be allocated
    EXPECT_EQ(processSource(5, none(), 300'000'000), android::QOZResult::kRefused);
    EXPECT_EQ(process({{6, buffer(96, 48, kRgba), {}, 400'000'000, {}}, {7, none(), {}, 0, {}}}),
              android::QOZResult::kRefused);
}

TEST_F(RefusedReconfiguration, GivesNoFrameThatIsNotOne) {
    for (const char* fault : {"reconfigure=5", "eventReconfigDone=5"}) {
        for (const auto& [width, height, upscale] :
             {std::tuple{160U, 96U, 0U}, {32U, 32U, 0U}, {kW, kH, 1U}}) {
            SCOPED_TRACE(testing::Message() << fault << " at " << width << "x" << height
                                            << ", upscale index " << upscale);
            const bool accepted = std::string(fault) == "eventReconfigDone=5";
            client::LiveClient client;
            ASSERT_TRUE(client.start(kW, kH, {1, 0, 1, 0}));
            int64_t now = 0;
            for (int n = 0; n < 4; ++n)
                ASSERT_TRUE(client.send(kW, kH, now += 16'000'000));
            ASSERT_TRUE(client.waitForTimestamp(static_cast<uint64_t>(now / 1000)));
            std::string error;
            host::armFault(host::parseFault(fault, &error).value());
            size_t frames = 0;
            if (upscale != 0) {
                ASSERT_TRUE(
                    client.send(kW, kH, now += 16'000'000, {}, ConfigParams{1, 0, 1, upscale}));
            }
            client.onFrame = [&frames](const auto&, const auto&) { ++frames; };
            for (int n = 0; n < 6; ++n)
                ASSERT_TRUE(client.send(width, height, now += 16'000'000));
            client.vpp->flushsync();
            client.look();
            EXPECT_EQ(client.account(), "") << "every buffer comes back";
            EXPECT_TRUE(accepted || frames == 0) << "the ports still have the old size";
            // A new config() restores the stream.
            client.vpp->config(width, height, kRgba, {1, 0, 1, upscale}, true);
            ASSERT_TRUE(client.vpp->isInputPortEnabled(width, height, kRgba));
            for (int n = 0; n < 3; ++n)
                ASSERT_TRUE(client.send(width, height, now += 16'000'000));
            EXPECT_TRUE(client.waitForTimestamp(static_cast<uint64_t>(now / 1000)));
            client.stop();
            EXPECT_EQ(client.account(), "");
        }
    }
}

}  // namespace
}  // namespace qoz::test
