// SPDX-License-Identifier: Apache-2.0
// The cost of the log statements and trace points of one frame while logging and tracing are off,
// as a share of process(). Their number is determined from the messages and events of one frame
// while both are on. The cost of one is measured with the library's own macros in the same run.
#include <unistd.h>

#include <atomic>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <string_view>

#include "base/Log.h"
#include "base/TraceMarker.h"
#include "support/Feed.h"
#include "support/Rounds.h"

namespace qoz::bench {
namespace {

constexpr int kSamples = 100;  // per round
constexpr int kFrames = 8;     // per sample
constexpr int kPasses = 1000;  // per sample; each passes ten gates
constexpr double kAim = 0.01;

// A gate is the test whether logging or tracing is on. These are the numbers for one frame.
struct Gates {
    int logs = 0;
    int traces = 0;
};

// Returns the number of tests that produced the events in a trace. A section tests at its beginning
// and at its end. A marker, whose end directly follows its beginning, tests only once.
int traceGatesIn(const std::filesystem::path& trace) {
    constexpr std::string_view kPhase = "\"ph\":\"";
    std::ifstream file(trace);
    const std::string text{std::istreambuf_iterator<char>(file), {}};
    int tests = 0;
    char last = 'E';
    for (size_t at = text.find(kPhase); at != std::string::npos; at = text.find(kPhase, at + 1)) {
        const char phase = text[at + kPhase.size()];
        if (phase != 'B' && phase != 'E') continue;  // names and counters
        if (phase == 'B' || last == 'E') ++tests;
        last = phase;
    }
    return tests;
}

// Counts the gates for one source packet, with a component that has logging and tracing on.
Gates countGates(bool sideBuffers) {
    Gates found;
    std::atomic<int> messages = 0;  // atomic, because the output worker logs too
    const auto quiet = host::setLogSink([&](const host::LogLine&) { ++messages; });
    host::setProperty("vendor.qoz.log.msg", "21");
    host::setProperty("debug.atrace.tags.enableflags", "2");
    {
        Feed feed({.sideBuffers = sideBuffers});
        const std::filesystem::path file = std::filesystem::temp_directory_path() /
                                           ("gates_bench." + std::to_string(getpid()) + ".json");
        host::startTrace();
        messages = 0;
        feed.send();
        found.logs = messages;
        host::stopTrace(file);
        found.traces = traceGatesIn(file);
        std::filesystem::remove(file);
    }
    host::setProperty("vendor.qoz.log.msg", "0");
    host::setProperty("debug.atrace.tags.enableflags", "0");
    host::setLogSink(quiet);
    return found;
}

// Has the members that the macros use in the component.
class Gated {
  public:
    void log() {
        VPP_LOGI("bench: %u", mLogFlags);
        benchmark::ClobberMemory();  // makes the next call read the flag again
    }
    static void trace() { benchmark::DoNotOptimize(ATRACE_ENABLED()); }

  private:
    uint32_t mLogFlags = 0;
    android::SessionLog mLog{mLogFlags, "bench", this};
};

// Returns the nanoseconds for one gate. Each pass of the loop contains ten gates, so that the loop
// itself adds almost nothing.
template <typename Pass>
double timeGate(Pass pass) {
    return timeCalls(kPasses,
                     [&] {
                         pass(), pass(), pass(), pass(), pass();
                         pass(), pass(), pass(), pass(), pass();
                     }) /
           10;
}

// Argument: whether the frame carries side buffers.
void gates(benchmark::State& state) {
    const bool sideBuffers = state.range(0) != 0;
    const Gates passed = countGates(sideBuffers);
    Feed feed({.sideBuffers = sideBuffers});
    Gated gated;
    benchmark::DoNotOptimize(&gated);
    for (auto _ : state) {
        std::vector<double> logs, traces;
        const Rounds all = inTurn(
            kSamples,
            [&] {
                logs.push_back(timeGate([&] { gated.log(); }));
                traces.push_back(timeGate([] { Gated::trace(); }));
                return passed.logs * logs.back() + passed.traces * traces.back();
            },
            [&] {
                return timeCalls(
                    kFrames, [&] { feed.send(); }, [&] { feed.returnInput(); });
            });
        report(state,
               sideBuffers ? "log and trace off: share of a source with side buffers"
                           : "log and trace off: share of a plain source",
               all, kAim);
        state.counters["log_gates"] = passed.logs;
        state.counters["trace_gates"] = passed.traces;
        state.counters["log_gate_ns"] = median(logs);
        state.counters["trace_gate_ns"] = median(traces);
    }
}
BENCHMARK(gates)->Arg(0)->Arg(1)->Iterations(1);

}  // namespace
}  // namespace qoz::bench
