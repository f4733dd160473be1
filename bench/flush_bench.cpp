// SPDX-License-Identifier: Apache-2.0
// The time for which flushsync() blocks the client with 8 source frames and 12 output buffers in
// flight, without the time that the service takes to answer. It is compared with a hand-over from
// one thread to another and back, followed by the destruction of the same number of internal
// buffers.
#include <client/DoneCallback.h>
#include <src/vpp/RecordFields.h>

#include <condition_variable>
#include <mutex>

#include "support/Buffers.h"
#include "support/NullSession.h"
#include "support/Rounds.h"
#include "support/SingleJobThread.h"

namespace qoz::bench {
namespace {

using android::GraphicBuffer;
using android::QOZBufferInfo;
using android::sp;

constexpr int kFlushes = 40;  // per round
constexpr int kSources = 8;
constexpr int kOutputs = 12;

// A session that keeps all buffers and returns them on a thread of its own when it is flushed.
class HoldingSession : public NullSession {
  public:
    Clock::duration answerTime{};  // of the last flush, from the call to the return of all buffers

    Status queueBuf(Port port, const vpp::VppBuffer& buffer, Error*) override {
        auto& held = port == Port::INPUT ? mInputs : mOutputs;
        held.push_back({android::unsignedOf(buffer.timestamp), buffer.cookie});
        return Status::ok();
    }
    Status flush(Port port, Error*) override {
        if (port == Port::OUTPUT) {
            mExecutor.give([this, asked = Clock::now()] {
                giveBack();
                answerTime = Clock::now() - asked;
                for (const int32_t flushed : {0, 1}) {
                    vpp::FlushDone done;
                    done.port = flushed;
                    (void)callbacks->eventFlushDone(done, &mResult);
                }
            });
        }
        return Status::ok();
    }

  private:
    struct Held {
        uint64_t timestamp;
        int64_t cookie;
    };
    void giveBack() {
        for (const auto& [timestamp, cookie] : std::exchange(mInputs, {})) {
            (void)callbacks->inputBufferDone(record(timestamp, cookie), &mResult);
        }
        for (const auto& [timestamp, cookie] : std::exchange(mOutputs, {})) {
            (void)callbacks->outputBufferDone(record(timestamp, cookie), &mResult);
        }
    }
    static vpp::VppBuffer record(uint64_t timestamp, int64_t cookie) {
        vpp::VppBuffer buffer;
        buffer.timestamp = timestamp;
        buffer.cookie = cookie;
        return buffer;
    }
    std::vector<Held> mInputs, mOutputs;
    vpp::VppError mResult = vpp::VppError::VPP_OK;
    SingleJobThread mExecutor;
};

void fill(android::VppComponent& component, std::vector<sp<GraphicBuffer>>& buffers) {
    for (int32_t i = 0; i < kOutputs; ++i) {
        QOZBufferInfo output{i, buffers[kSources + static_cast<size_t>(i)], nullptr, 0, {}};
        component.process(nullptr, &output);
    }
    for (int32_t i = 0; i < kSources; ++i) {
        std::vector<QOZBufferInfo> packet{
            {i, buffers[static_cast<size_t>(i)], nullptr, i * 16000000LL, {}}};
        component.process(&packet, nullptr);
    }
}

// The side that the component is compared with: a hand-over to another thread and back, and the
// destruction of the buffers that a flush destroys.
class Bare {
  public:
    double measure() {
        std::vector<sp<GraphicBuffer>> pooled = makePooled();
        bool back = false;
        const auto begin = Clock::now();
        mExecutor.give([&] {
            const std::lock_guard held(mLock);
            back = true;
            mCond.notify_one();
        });
        {
            std::unique_lock held(mLock);
            mCond.wait(held, [&] { return back; });
        }
        pooled.clear();
        return nanoseconds(Clock::now() - begin);
    }

  private:
    // Creates a target and a half-size copy for each source, and motion vectors for all sources but
    // the first.
    static std::vector<sp<GraphicBuffer>> makePooled() {
        std::vector<sp<GraphicBuffer>> pooled;
        for (int i = 0; i < kSources; ++i) {
            pooled.push_back(makeBuffer(64, 64, kNv12));
            pooled.push_back(makeBuffer(32, 32, kNv12));
            if (i == 0) continue;
            pooled.push_back(makeBuffer(4, 4, kRgba));
            pooled.push_back(makeBuffer(4, 4, kRgba));
        }
        return pooled;
    }

    SingleJobThread mExecutor;
    std::mutex mLock;
    std::condition_variable mCond;
};

double measureFlush(android::VppComponent& component, HoldingSession& session,
                    std::vector<sp<GraphicBuffer>>& buffers) {
    fill(component, buffers);
    const auto begin = Clock::now();
    component.flushsync();
    return nanoseconds(Clock::now() - begin - session.answerTime);
}

void flushsync(benchmark::State& state) {
    const auto session = ndk::SharedRefBase::make<HoldingSession>();
    const NullService service(session);
    client::DoneCallback client;
    const auto component = std::make_shared<android::VppComponent>();
    component->enable("bench", &client, false);
    component->config(64, 64, 1, {1, 0, 1, 0}, true);
    std::vector<sp<GraphicBuffer>> buffers;
    buffers.reserve(kSources + kOutputs);
    for (int i = 0; i < kSources + kOutputs; ++i)
        buffers.push_back(makeBuffer(64, 64, i < kSources ? kRgba : kNv12));
    Bare bare;
    for (auto _ : state) {
        const Rounds all = inTurn(
            kFlushes, [&] { return measureFlush(*component, *session, buffers); },
            [&] { return bare.measure(); });
        report(state, "flushsync: 8 sources and 12 outputs in flight", all, kNoAim);
    }
    component->disable();
}
BENCHMARK(flushsync)->Iterations(1);

// The time for which one operation blocks the client if the service accepts all commands and sends
// no event, compared with the limit that all waits of an operation share.
template <typename Operation>
void silent(benchmark::State& state, const char* label, Operation operation) {
    constexpr double kLimitNs = 3e9;
    constexpr double kAtMostNs = 3.1e9;
    const auto session = ndk::SharedRefBase::make<NullSession>();
    const NullService service(session);
    client::DoneCallback client;
    const auto component = std::make_shared<android::VppComponent>();
    component->enable("bench", &client, false);
    component->config(64, 64, 1, {1, 0, 1, 0}, true);
    std::vector<QOZBufferInfo> packet{{0, makeBuffer(64, 64, kRgba), nullptr, 0, {}}};
    component->process(&packet, nullptr);
    for (auto _ : state) {
        const auto begin = Clock::now();
        operation(*component);
        const double taken = nanoseconds(Clock::now() - begin);
        for (const char* name : {"ours_ns", "ours_min_ns", "ours_max_ns"})
            state.counters[name] = taken;
        state.counters["limit_ns"] = kAtMostNs;
        state.counters["of the limit"] = taken / kLimitNs;
    }
    state.SetLabel(label);
    component->disable();
}

void sendFrame(android::VppComponent& component, uint32_t size,
               std::optional<android::ConfigParams> carried) {
    std::vector<QOZBufferInfo> packet{{1, makeBuffer(size, size, kRgba), nullptr, 16, carried}};
    component.process(&packet, nullptr);
}

BENCHMARK_CAPTURE(silent, flushsync, "silent service: flushsync", [](android::VppComponent& c) {
    c.flushsync();
})->Iterations(1);
BENCHMARK_CAPTURE(silent, size, "silent service: a frame of another size",
                  [](android::VppComponent& c) { sendFrame(c, 96, {}); })
    ->Iterations(1);
BENCHMARK_CAPTURE(silent, size and ratio, "silent service: another size and ratio",
                  [](android::VppComponent& c) {
                      sendFrame(c, 96, android::ConfigParams{1, 0, 1, 2});
                  })
    ->Iterations(1);

}  // namespace
}  // namespace qoz::bench
