// SPDX-License-Identifier: Apache-2.0
// Several components at once: the cost of a frame for each against one component alone. A frame is
// process() of a source packet with side buffers, process() of an output buffer, and the return of
// the input; nothing is delivered, so that no worker runs beside the threads that feed. Two of
// those share the components out, one feeds the single one.
#include <ctime>
#include <latch>
#include <thread>

#include "support/Feed.h"
#include "support/Rounds.h"

namespace qoz::bench {
namespace {

using Feeds = std::vector<std::unique_ptr<Feed>>;

constexpr int kSamples = 20;  // a round
constexpr int kFrames = 640;  // a sample, over all components
constexpr double kAim = 1.2;  // for 16 of them

// What a frame costs one thread.
struct Cost {
    double wall = 0;  // nanoseconds a frame
    double cpu = 0;
};

double threadCpu() {
    timespec now{};
    clock_gettime(CLOCK_THREAD_CPUTIME_ID, &now);
    return static_cast<double>(now.tv_sec) * 1e9 + static_cast<double>(now.tv_nsec);
}

// Every `step`th component from `first` on, a frame each in turn.
Cost feedShare(const Feeds& feeds, size_t first, size_t step, int frames) {
    const double cpu = threadCpu();
    size_t at = first;
    const double wall = timeCalls(frames, [&] {
        Feed& feed = *feeds[at];
        feed.send();
        feed.queueOutput();
        feed.returnInput();
        at = at + step < feeds.size() ? at + step : first;
    });
    return {wall, (threadCpu() - cpu) / frames};
}

// What a frame costs the thread that feeds it, in the mean over the threads.
Cost feedAll(const Feeds& feeds) {
    const size_t threads = std::min<size_t>(2, feeds.size());
    const int frames = kFrames / static_cast<int>(threads);
    std::vector<Cost> costs(threads);
    std::latch start(static_cast<std::ptrdiff_t>(threads));
    std::vector<std::thread> running;
    for (size_t t = 0; t < threads; ++t) {
        running.emplace_back([&, t] {
            start.arrive_and_wait();
            costs[t] = feedShare(feeds, t, threads, frames);
        });
    }
    Cost mean;
    for (size_t t = 0; t < threads; ++t) {
        running[t].join();
        mean.wall += costs[t].wall / static_cast<double>(threads);
        mean.cpu += costs[t].cpu / static_cast<double>(threads);
    }
    return mean;
}

Feeds makeFeeds(size_t count) {
    Feeds feeds;
    for (size_t i = 0; i < count; ++i)
        feeds.push_back(std::make_unique<Feed>(Feed::Setup{.entries = 2}));
    return feeds;
}

// Argument: how many.
void components(benchmark::State& state) {
    const auto count = static_cast<size_t>(state.range(0));
    const Feeds several = makeFeeds(count);
    const Feeds single = makeFeeds(1);
    for (auto _ : state) {
        Rounds cpu;
        const Rounds wall = inTurn(
            kSamples,
            [&] {
                const Cost cost = feedAll(several);
                cpu.ours.push_back(cost.cpu);
                return cost.wall;
            },
            [&] {
                const Cost cost = feedAll(single);
                cpu.peer.push_back(cost.cpu);
                return cost.wall;
            });
        report(state, "components: " + std::to_string(count) + " at once against 1", wall,
               count == 16 ? kAim : kNoAim);
        state.counters["components"] = static_cast<double>(count);
        state.counters["ours_cpu_ns"] = median(cpu.ours);
        state.counters["peer_cpu_ns"] = median(cpu.peer);
        state.counters["ratio_cpu"] = median(cpu.ours) / median(cpu.peer);
    }
}
BENCHMARK(components)->Arg(4)->Arg(16)->Arg(64)->Iterations(1);

}  // namespace
}  // namespace qoz::bench
