// SPDX-License-Identifier: Apache-2.0
// The measurements of all benches. Each compares two sides, which run alternately in the same
// process, and reports medians over several rounds and their spread. `bench/run` makes its table
// from the counters that report() sets.
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

// Returns whether a bench shall only show that it works, as in the target `smoke`.
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

// `share` is from 0 to 1; 0.5 is the median.
inline double percentile(std::vector<double> values, double share) {
    const auto last = static_cast<double>(values.size() - 1);
    const auto at = values.begin() + std::lround(share * last);
    std::nth_element(values.begin(), at, values.end());
    return *at;
}

inline double median(const std::vector<double>& values) {
    return percentile(values, 0.5);
}

// Calls `act` and returns the nanoseconds for each call. Afterwards, outside the measured time,
// calls `undo` as often, which restores what the calls have used up.
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

// The results of all rounds. Each ratio compares samples that were taken at the same time.
struct Rounds {
    std::vector<double> ours, peer, ratio;

    void add(double oursNs, double peerNs) {
        ours.push_back(oursNs);
        peer.push_back(peerNs);
        ratio.push_back(oursNs / peerNs);
    }
};

// Measures both sides alternately, in pairs of one sample each, so that other load on the machine
// affects both. The side that comes first changes with every pair. A round consists of `samples`
// pairs; its result for a side is the percentile `share` of that side's samples. The two functions
// take one sample each and return its nanoseconds.
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

// Sets the counters of one row of the table. `label` is the name of the row, and `aim` is the
// largest ratio that counts as met.
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
