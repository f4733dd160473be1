// What the log statements and trace points of one frame cost while both are off, as a share of
// process(). How many a frame passes is counted, with both on, by what comes out: one message for
// each log statement, one event for each test of a trace point (a marker makes two but tests once
// while it is off, so that this counts one too many). What one that is off costs is measured with
// the library's own macros, in the same run.
#include <android/log.h>

#include <atomic>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <optional>

#include "pipeline/TraceMarker.h"
#include "session/Log.h"
#include "support/Feed.h"
#include "support/Rounds.h"

namespace qoz::bench {
namespace {

constexpr int kFrames = 2000;     // a round
constexpr int kPasses = 1000000;  // of one gate, a round
constexpr double kAim = 0.01;

struct Gates {
    int messages = 0;
    int events = 0;
};

int eventsIn(const std::filesystem::path& trace) {
    std::ifstream file(trace);
    const std::string text{std::istreambuf_iterator<char>(file), {}};
    int events = 0;
    for (size_t at = text.find("\"ph\""); at != std::string::npos; at = text.find("\"ph\"", at + 1))
        ++events;
    return events;
}

// Those of one source packet, by a component whose diagnostics are on.
Gates countGates(bool sideBuffers) {
    Gates found;
    std::atomic<int> messages = 0;  // the worker of the component logs too
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
        found.messages = messages;
        host::stopTrace(file);
        found.events = eventsIn(file);
        std::filesystem::remove(file);
    }
    host::setProperty("vendor.qoz.log.msg", "0");
    host::setProperty("debug.atrace.tags.enableflags", "0");
    host::setLogSink(quiet);
    return found;
}

// Stands where the component stands in the macros.
class Gated {
  public:
    void log() {
        VPP_LOGI("%s: %u", "bench", mLogFlags);
        benchmark::ClobberMemory();  // the flag is read again
    }
    static void trace() { benchmark::DoNotOptimize(ATRACE_ENABLED()); }

  private:
    uint32_t mLogFlags = 0;
    std::atomic<const char*> mLogName = "bench";
};

template <typename Pass>
double passRound(Pass pass) {
    const int passes = reduced(kPasses);
    const auto begin = Clock::now();
    for (int n = 0; n < passes; ++n)
        pass();
    return nanoseconds(Clock::now() - begin) / passes;
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
            [&] {
                logs.push_back(passRound([&] { gated.log(); }));
                traces.push_back(passRound([] { Gated::trace(); }));
                return passed.messages * logs.back() + passed.events * traces.back();
            },
            [&] {
                return timeCalls(
                    reduced(kFrames), [&] { feed.send(); }, [&] { feed.returnInput(); });
            });
        report(state,
               sideBuffers ? "log and trace off: share of a source with side buffers"
                           : "log and trace off: share of a plain source",
               all, kAim);
        state.counters["log_gates"] = passed.messages;
        state.counters["trace_gates"] = passed.events;
        state.counters["log_gate_ns"] = median(logs);
        state.counters["trace_gate_ns"] = median(traces);
    }
}
BENCHMARK(gates)->Arg(0)->Arg(1)->Iterations(1);

}  // namespace
}  // namespace qoz::bench
