// SPDX-License-Identifier: Apache-2.0
// The reuse of internal buffers. Each frame takes the oldest free target and side buffers from
// their pools and returns them, with 16 or 100 free buffers compared with 1.
#include "support/Feed.h"
#include "support/Rounds.h"

namespace qoz::bench {
namespace {

constexpr int kBatches = 250;  // per round
constexpr int kBatch = 8;      // frames per batch

// Measures process() with a source packet and the return of its buffers.
double reuseBatch(Feed& feed) {
    return timeCalls(kBatch, [&] {
        feed.send();
        feed.returnInput();
    });
}

// Argument: the number of free buffers.
void reuse(benchmark::State& state) {
    const auto entries = static_cast<int>(state.range(0));
    Feed many({.entries = entries});
    Feed one({.entries = 1});
    for (auto _ : state) {
        const Rounds all = inTurn(
            kBatches, [&] { return reuseBatch(many); }, [&] { return reuseBatch(one); });
        report(state, "pools: reuse with " + std::to_string(entries) + " free against 1", all,
               kNoAim);
    }
}
BENCHMARK(reuse)->Arg(16)->Arg(100)->Iterations(1);

}  // namespace
}  // namespace qoz::bench
