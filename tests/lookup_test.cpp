// SPDX-License-Identifier: Apache-2.0
// Tests of a component in a process that has no binder threads yet: the component must start them,
// or no callback would arrive.
#include <client/LiveClient.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <optional>

#include "support/Capture.h"
#include "support/Watchdog.h"

namespace qoz::test {
namespace {

constexpr uint32_t kW = 64;
constexpr uint32_t kH = 48;
constexpr int64_t kTime = 1000000;  // of the frame, nanoseconds; waiting for time 0 would not wait

// Plays one frame with a service that is registered when the component logs `moment`, or before
// the component exists if `moment` is empty. Ends the process at once, with 0 if the frame has come
// out: without binder threads, the service's end would wait forever.
[[noreturn]] void playWithAServiceFrom(const std::string& moment) {
    const Watchdog watchdog;
    host::setProperty("vendor.qoz.log.msg", "21");
    std::optional<host::VppService> service;
    LogCapture log;
    log.onLine = [&](const std::string& text) {
        if (text == moment) service.emplace();
    };
    if (moment.empty()) service.emplace();
    client::LiveClient client;
    const bool plays = client.start(kW, kH, {1, 0, 0, 0}) && client.send(kW, kH, kTime) &&
                       client.waitForTimestamp(kTime / 1000);
    _exit(plays ? 0 : 1);
}

// Binder threads exist until the process ends, so each case runs in its own process.
TEST(BinderThreads, AreStartedAtWhicheverAttemptFindsTheService) {
    GTEST_FLAG_SET(death_test_style, "threadsafe");
    for (const std::string moment : {"", "sleep to get interface. Attempt (1 + 2)"}) {
        EXPECT_EXIT(playWithAServiceFrom(moment), testing::ExitedWithCode(0), "") << moment;
    }
}

}  // namespace
}  // namespace qoz::test
