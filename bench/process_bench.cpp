// SPDX-License-Identifier: Apache-2.0
// The component's own share of a frame: process() with one source packet and with one output
// buffer, with a converter and a service that do nothing. It is compared with plain statements for
// the work that every component must do (support/Floor.h). The heap allocations of both sides are
// counted by their purpose.
#include <algorithm>

#include "support/Allocations.h"
#include "support/Feed.h"
#include "support/Floor.h"
#include "support/Rounds.h"

namespace qoz::bench {
namespace {

constexpr int kBatches = 250;  // per round
constexpr int kBatch = 8;      // packets per batch; all are in flight at once
constexpr double kAim = 1.3;

// Returns the purpose of an allocation of this size in process(). If two purposes have the same
// size, the name contains both.
const char* reasonFor(size_t bytes) {
    constexpr size_t kNode = 2 * sizeof(void*);  // links of a list node; link and key of a map node
    constexpr size_t kMeta = sizeof(vpp::VppMetaBuffer);
    switch (bytes) {
        case sizeof(ndk::ScopedFileDescriptor):
            return "descriptor_vector";
        case kNode + sizeof(void*):
            return "held_slot_or_target_node";
        case kNode + 3 * sizeof(void*):
            return "side_buffers_node";
        case 31:  // the first allocation of a string of more than 15 characters
            return "metabuffer_name";
        case kMeta:
        case 2 * kMeta:
        case 3 * kMeta:
        case 4 * kMeta:
            return "metabuffer_vector";
        default:
            return "other";
    }
}

template <typename Side>
void countAllocations(benchmark::State& state, const std::string& who, Side& side) {
    constexpr int kCounted = 8;
    Allocations allocations;
    for (int n = 0; n < kCounted; ++n)
        side.send();
    const auto found = allocations.stop();
    for (int n = 0; n < kCounted; ++n)
        side.returnInput();
    for (const auto& [bytes, calls] : found) {
        const double each = static_cast<double>(calls) / kCounted;
        state.counters[who + "_allocs_per_frame"] += each;
        state.counters[who + "_" + reasonFor(bytes)] += each;
    }
}

// A session that records how many native handles exist while a record is queued.
class HandleSession : public NullSession {
  public:
    uint64_t most = 0;
    Status queueBuf(Port, const vpp::VppBuffer&, Error*) override {
        most = std::max(most, host::counters().nativeHandlesLive);
        return Status::ok();
    }
};

// Counts the native handles for one source packet. They are allocated with calloc(), so the counts
// of operator new do not contain them.
void countHandles(benchmark::State& state, bool sideBuffers) {
    const auto session = ndk::SharedRefBase::make<HandleSession>();
    Feed feed({.sideBuffers = sideBuffers, .session = session});
    const uint64_t before = host::counters().nativeHandlesLive;
    session->most = 0;
    feed.send();
    state.counters["ours_native_handles"] = static_cast<double>(session->most - before);
}

template <typename Side>
double sourceBatch(Side& side) {
    return timeCalls(
        kBatch, [&] { side.send(); }, [&] { side.returnInput(); });
}

// The outputs are not returned, because that would wake the output worker, which would disturb the
// measurement.
template <typename Side>
double outputBatch(Side& side) {
    return timeCalls(kBatch, [&] { side.queueOutput(); });
}

// Argument: whether frames carry side buffers.
void sourcePacket(benchmark::State& state) {
    const bool sideBuffers = state.range(0) != 0;
    Feed feed({.sideBuffers = sideBuffers});
    Floor floor(sideBuffers);
    for (auto _ : state) {
        const Rounds all = inTurn(
            kBatches, [&] { return sourceBatch(feed); }, [&] { return sourceBatch(floor); });
        report(state, sideBuffers ? "process: source with side buffers" : "process: source, plain",
               all, kAim);
        countAllocations(state, "ours", feed);
        countAllocations(state, "floor", floor);
        countHandles(state, sideBuffers);
    }
}
BENCHMARK(sourcePacket)->Arg(0)->Arg(1)->Iterations(1);

void outputBuffer(benchmark::State& state) {
    Feed feed({.sideBuffers = false});
    Floor floor(false);
    for (auto _ : state) {
        const Rounds all = inTurn(
            kBatches, [&] { return outputBatch(feed); }, [&] { return outputBatch(floor); });
        report(state, "process: output buffer", all, kAim);
    }
}
BENCHMARK(outputBuffer)->Iterations(1);

}  // namespace
}  // namespace qoz::bench
