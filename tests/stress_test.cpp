// SPDX-License-Identifier: Apache-2.0
// Plays streams with many random changes. No buffer may be lost and no operation may hang. The
// sanitizers also run this test.
#include <client/LiveClient.h>

#include <random>
#include <thread>

#include "support/Fixture.h"

namespace qoz::test {
namespace {

constexpr int64_t kFrameNs = 16000000;

class Stress : public ResourceTest {
  protected:
    // Plays one stream with `changes` random changes. Returns a description of the first failure;
    // empty if there is none.
    static std::string play(uint32_t seed, int changes) {
        std::mt19937 random(seed);
        const auto pick = [&random](auto... values) {
            const std::array all{values...};
            return all[random() % all.size()];
        };
        client::LiveClient client;
        uint32_t width = 96;
        uint32_t height = 64;
        ConfigParams params{1, 0, 1, 0};
        if (!client.start(width, height, params)) return "does not start";
        int64_t now = 0;
        for (int change = 0; change < changes; ++change) {
            std::optional<ConfigParams> carried;
            switch (random() % 6) {
                case 0:
                    width = pick(64U, 96U, 98U, 131U);
                    height = pick(48U, 64U, 81U);
                    break;
                case 1:
                    params.interpFactor = pick(0U, 1U, 2U, 3U);
                    break;
                case 2:
                    params.upscaleIndex = pick(0U, 1U, 2U, 7U);
                    break;
                case 3:
                    client.vpp->flushsync();
                    break;
                case 4:
                    client.vpp->disable();  // drops outstanding buffers
                    if (!client.start(width, height, params)) return "does not start again";
                    break;
                default:
                    client.vpp->config(width, height, kRgba, params, pick(true, false));
            }
            if (random() % 2 == 0) carried = params;
            for (uint32_t n = random() % 3; n > 0; --n) {
                if (!client.send(width, height, now += kFrameNs, {}, std::exchange(carried, {}))) {
                    client.stop();
                    return "stuck at change " + std::to_string(change);
                }
            }
        }
        client.stop();
        return client.account();
    }

    host::VppService service;
    LogCapture log;
};

TEST_F(Stress, LosesNothingInOneLongStreamNorInSeveralAtOnce) {
    const uint32_t seed = std::random_device{}();
    for (const auto& [components, changes] : {std::pair{1U, 1000}, {4U, 80}}) {
        std::vector<std::string> wrong(components);
        std::vector<std::thread> threads;
        for (uint32_t i = 0; i < components; ++i)
            threads.emplace_back([&, i, n = changes] { wrong[i] = play(seed + i, n); });
        for (auto& thread : threads)
            thread.join();
        EXPECT_EQ(wrong, std::vector<std::string>(components)) << "seed " << seed;
    }
}

}  // namespace
}  // namespace qoz::test
