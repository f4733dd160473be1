// SPDX-License-Identifier: Apache-2.0
// Kills the service process at random moments of a stream. Whatever the component was doing, every
// buffer must be returned before the client disables the component, and every operation must end
// soon after the death.
#include <client/LiveClient.h>
#include <host/vppd/RemoteService.h>

#include <atomic>
#include <csignal>
#include <iostream>
#include <random>
#include <thread>

#include "support/Fixture.h"
#include "support/ServiceProcess.h"

namespace qoz::test {
namespace {

using Clock = std::chrono::steady_clock;

constexpr uint32_t kW = 96;
constexpr uint32_t kH = 64;
constexpr int64_t kFrameNs = 16000000;
constexpr ConfigParams kDouble{1, 0, 1, 0};
constexpr ConfigParams kLarger{1, 0, 1, 1};

enum class Moment { Frames, Flush, Size, Ratio };
constexpr const char* kMoments[] = {"while frames flow", "in a flush", "in a change of size",
                                    "in a change of the ratio"};

// A fixture with a service process that answers flushes and reconfigurations late, so that a kill
// often takes place while the component waits for it.
class VppdKill : public ResourceTest {
  protected:
    struct Outcome {
        bool within = false;  // the operation was under way before and after the kill
        Clock::duration end{};
    };

    // Carries out the operation on the client's thread, and kills the service `delay` after its
    // beginning.
    void killDuring(Moment moment, std::chrono::microseconds delay, Outcome* outcome) {
        client::LiveClient client;
        ASSERT_TRUE(client.start(kW, kH, kDouble));
        const pid_t pid = servicePidOf(bus);
        for (int64_t n = 0; n < 3; ++n)
            EXPECT_TRUE(client.send(kW, kH, n * kFrameNs));
        std::atomic<bool> began{false}, over{false}, killed{false};
        Clock::time_point at;
        std::thread killer([&] {
            while (!began)
                std::this_thread::yield();
            std::this_thread::sleep_for(delay);
            const bool before = !over;
            at = Clock::now();
            EXPECT_EQ(kill(pid, SIGKILL), 0);
            killed = true;
            outcome->within = before && !over;
        });
        began = true;
        switch (moment) {
            case Moment::Frames:
                for (int64_t n = 3; !killed; ++n)
                    client.send(kW, kH, n * kFrameNs);
                break;
            case Moment::Flush:
                client.vpp->flushsync();
                break;
            case Moment::Size:
                client.send(2 * kW, 2 * kH, 3 * kFrameNs);
                break;
            case Moment::Ratio:
                client.send(kW, kH, 3 * kFrameNs, {}, kLarger);
                break;
        }
        over = true;
        killer.join();
        client.send(kW, kH, 1000 * kFrameNs);
        client.vpp->flushsync();  // returns the last source, which is the reference frame
        outcome->end = Clock::now() - at;
        EXPECT_TRUE(eventually([&] { return client.ledger().outstanding() == 0; }))
            << client.account();
        const auto disabling = Clock::now();
        client.disable();
        EXPECT_LT(Clock::now() - disabling, kLongestEnd);
        EXPECT_EQ(client.account(), "");
    }

    const host::PrivateBus bus{
        {"--fault", "eventFlushDone=late:30@1+", "--fault", "eventReconfigDone=late:150@1+"}};
    host::RemoteVppService service{bus.address()};
};

// QOZ_KILLS sets the number of kills. Half of them take place during a change of size or ratio.
TEST_F(VppdKill, AtAnyMomentEverythingComesBackAtOnce) {
    const char* const wanted = getenv("QOZ_KILLS");
    const size_t kills = wanted != nullptr ? std::stoul(wanted) : 8;
    const uint32_t seed = std::random_device{}();
    std::mt19937 random(seed);
    LogCapture quiet;
    size_t done = 0, withinChanges = 0;
    Clock::duration longest{};
    for (; done < kills; ++done) {
        const auto moment = static_cast<Moment>(done % std::size(kMoments));
        const auto delay = std::chrono::microseconds(random() % 150000);
        SCOPED_TRACE("seed " + std::to_string(seed) + ", kill " + std::to_string(done) + ' ' +
                     kMoments[static_cast<size_t>(moment)]);
        Outcome outcome;
        ASSERT_NO_FATAL_FAILURE(killDuring(moment, delay, &outcome));
        EXPECT_LT(outcome.end, kLongestEnd);
        longest = std::max(longest, outcome.end);
        if (moment >= Moment::Size && outcome.within) ++withinChanges;
        EXPECT_TRUE(eventually([&] { return service.deaths() == done + 1; }));
        Watchdog::feed();
    }
    std::cout << "seed " << seed << ": " << done << " kills, " << withinChanges
              << " within a change of size or ratio; longest end "
              << std::chrono::duration<double>(longest).count() << " s\n";
    EXPECT_GT(withinChanges, 0U);
}

}  // namespace
}  // namespace qoz::test
