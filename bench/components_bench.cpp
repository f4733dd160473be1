// SPDX-License-Identifier: Apache-2.0
// The cost of a frame with several components at once, compared with a single component. Two
// threads feed the several components, half of them each, and one thread feeds the single
// component. A frame consists of process() with a source packet with side buffers, process() with
// an output buffer, and the return of the source. Nothing is delivered, so that the output workers
// stay asleep.
#include <ctime>
#include <latch>
#include <thread>

#include "support/Feed.h"
#include "support/Rounds.h"

namespace qoz::bench {
namespace {

using Feeds = std::vector<std::unique_ptr<Feed>>;

constexpr int kSamples = 20;  // per round
constexpr int kFrames = 640;  // per sample, for all components together
constexpr double kAim = 1.2;  // for 16 components

// The time of one thread for one frame.
struct Cost {
    double wall = 0;  // nanoseconds
    double cpu = 0;   // nanoseconds
};

double threadCpu() {
    timespec now{};
    clock_gettime(CLOCK_THREAD_CPUTIME_ID, &now);
    return static_cast<double>(now.tv_sec) * 1e9 + static_cast<double>(now.tv_nsec);
}

// Sends frames through every `step`th component from `first` on, one frame to each in turn.
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

// Sends frames through all components. Returns the cost of a frame as the mean over the threads.
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

// Argument: the number of components.
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
