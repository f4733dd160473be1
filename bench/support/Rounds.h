// SPDX-License-Identifier: Apache-2.0
// How every bench measures: two sides in turn within one run, medians of rounds, the spread with
// it. The counters are what `bench/run` makes its table of.
#pragma once

#include <benchmark/benchmark.h>

#include <algorithm>
#include <chrono>
#include <cmath>
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
    const auto at = values.begin() + std::lround(share * last);
    std::nth_element(values.begin(), at, values.end());
    return *at;
}

inline double median(const std::vector<double>& values) {
    return percentile(values, 0.5);
}

// Nanoseconds for each of so many calls of `act`; `undo` brings back what a call has used up,
// outside the measured time.
template <typename Act, typename Undo>
double timeCalls(int calls, Act act, Undo undo) {
    const auto begin = Clock::now();
    for (int n = 0; n < calls; ++n)
        act();
    const auto spent = Clock::now() - begin;
    for (int n = 0; n < calls; ++n)
        undo();
    return nanoseconds(spent) / calls;
}

template <typename Act>
double timeCalls(int calls, Act act) {
    return timeCalls(calls, act, [] {});
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

// Both sides in turn, one sample of each, who begins changing with every pair: what else the
// machine does falls on both. A round is `samples` pairs, and its values are the percentiles
// `share` of them. Each side returns the nanoseconds of one sample.
template <typename Ours, typename Peer>
Rounds inTurn(int samples, Ours ours, Peer peer, double share = 0.5) {
    Rounds all;
    std::vector<double> ofOurs, ofPeer;
    for (int round = 0; round < rounds(); ++round) {
        ofOurs.clear();
        ofPeer.clear();
        for (int n = 0; n < reduced(samples); ++n) {
            if ((round + n) % 2 == 0) ofOurs.push_back(ours());
            ofPeer.push_back(peer());
            if ((round + n) % 2 != 0) ofOurs.push_back(ours());
        }
        all.add(percentile(ofOurs, share), percentile(ofPeer, share));
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
    for (size_t n = 0; n < all.ratio.size(); ++n)
        state.counters["ratio_of_round_" + std::to_string(n)] = all.ratio[n];
    if (aim != kNoAim) state.counters["aim"] = aim;
}

}  // namespace qoz::bench
