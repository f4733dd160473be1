// How every bench measures: two sides in turn within one run, medians of rounds, the spread with
// it. The counters are what `bench/run` makes its table of.
#pragma once

#include <benchmark/benchmark.h>

#include <algorithm>
#include <chrono>
#include <cstdlib>
#include <string>
#include <vector>

namespace qoz::bench {

using Clock = std::chrono::steady_clock;

// Set when it only matters that a bench runs at all (target `smoke`).
inline bool quick() {
    return std::getenv("QOZ_BENCH_QUICK") != nullptr;
}

inline int rounds() {
    return quick() ? 1 : 15;
}

inline int reduced(int count) {
    return quick() ? std::max(1, count / 20) : count;
}

inline double nanoseconds(Clock::duration d) {
    return std::chrono::duration<double, std::nano>(d).count();
}

// `share` from 0 to 1.
inline double percentile(std::vector<double> values, double share) {
    const auto last = static_cast<double>(values.size() - 1);
    const auto at = values.begin() + static_cast<std::ptrdiff_t>(share * last + 0.5);
    std::nth_element(values.begin(), at, values.end());
    return *at;
}

inline double median(const std::vector<double>& values) {
    return percentile(values, 0.5);
}

// Nanoseconds for one of `calls`, in batches: `undo` brings back what one call of `act` has used
// up, outside the measured time.
template <typename Act, typename Undo>
double timeCalls(int calls, Act act, Undo undo) {
    constexpr int kBatch = 8;
    Clock::duration spent{};
    const int batches = std::max(1, calls / kBatch);
    for (int batch = 0; batch < batches; ++batch) {
        const auto begin = Clock::now();
        for (int n = 0; n < kBatch; ++n)
            act();
        spent += Clock::now() - begin;
        for (int n = 0; n < kBatch; ++n)
            undo();
    }
    return nanoseconds(spent) / (batches * kBatch);
}

// One value a round; the ratios are of neighbours in time.
struct Rounds {
    std::vector<double> ours, peer, ratio;

    void add(double oursNs, double peerNs) {
        ours.push_back(oursNs);
        peer.push_back(peerNs);
        ratio.push_back(oursNs / peerNs);
    }
};

// Each side takes one round and returns its nanoseconds. Who begins changes from round to round.
template <typename Ours, typename Peer>
Rounds inTurn(Ours ours, Peer peer) {
    Rounds all;
    for (int round = 0; round < rounds(); ++round) {
        if (round % 2 == 0) {
            const double first = ours();
            all.add(first, peer());
        } else {
            const double first = peer();
            all.add(ours(), first);
        }
    }
    return all;
}

constexpr double kNoAim = 0;

// `label` is the row's name in the table; `aim` the largest ratio that is wanted.
inline void report(benchmark::State& state, const std::string& label, const Rounds& all,
                   double aim) {
    state.SetLabel(label);
    state.counters["ours_ns"] = median(all.ours);
    state.counters["peer_ns"] = median(all.peer);
    state.counters["ratio"] = median(all.ratio);
    state.counters["ratio_min"] = percentile(all.ratio, 0);
    state.counters["ratio_max"] = percentile(all.ratio, 1);
    state.counters["rounds"] = static_cast<double>(all.ratio.size());
    if (aim != kNoAim) state.counters["aim"] = aim;
}

}  // namespace qoz::bench
