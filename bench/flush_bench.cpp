// How long flushsync() blocks the client with 8 source frames and 12 output buffers in flight, less
// the time that the service took to answer; as a multiple of a bare hand-over between two threads,
// there and back, in the same run.
#include <benchmark/benchmark.h>
#include <qoz/VppComponent.h>

#include <algorithm>
#include <chrono>
#include <condition_variable>
#include <mutex>
#include <thread>

#include "support/NullSession.h"

namespace qoz::bench {
namespace {

using android::ConfigParams;
using android::GraphicBuffer;
using android::QOZBufferInfo;
using android::sp;
using Clock = std::chrono::steady_clock;

constexpr int kFlushes = 200;
constexpr int kSources = 8;
constexpr int kOutputs = 12;

double microseconds(Clock::duration d) {
    return std::chrono::duration<double, std::micro>(d).count();
}

// Carries out one job at a time on a thread of its own.
class Hand {
  public:
    Hand() : mThread([this] { serve(); }) {}
    ~Hand() {
        give(nullptr);
        mThread.join();
    }
    void give(std::function<void()> job) {
        const std::lock_guard lock(mLock);
        mJob = std::move(job);
        mGiven = true;
        mCond.notify_one();
    }

  private:
    void serve() {
        std::unique_lock lock(mLock);
        for (;;) {
            mCond.wait(lock, [this] { return mGiven; });
            mGiven = false;
            const auto job = std::move(mJob);
            if (!job) return;
            lock.unlock();
            job();
            lock.lock();
        }
    }
    std::mutex mLock;
    std::condition_variable mCond;
    std::function<void()> mJob;
    bool mGiven = false;
    std::thread mThread;
};

// Returns what it holds when it is flushed, from its own thread, and takes the time of that.
class HoldingSession : public NullSession {
  public:
    Clock::duration answerTime{};

    Status queueBuf(Port port, const vpp::VppBuffer& buffer, Error*) override {
        auto& held = port == Port::INPUT ? mInputs : mOutputs;
        held.push_back({buffer.timestamp, buffer.cookie});
        return Status::ok();
    }
    Status flush(Port port, Error*) override {
        if (port == Port::OUTPUT) {
            mHand.give([this, asked = Clock::now()] {
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
    Hand mHand;
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

Clock::duration handOver(Hand& hand) {
    std::mutex lock;
    std::condition_variable cond;
    bool back = false;
    const auto begin = Clock::now();
    hand.give([&] {
        const std::lock_guard held(lock);
        back = true;
        cond.notify_one();
    });
    std::unique_lock held(lock);
    cond.wait(held, [&] { return back; });
    return Clock::now() - begin;
}

void flushsync(benchmark::State& state) {
    const auto session = ndk::SharedRefBase::make<HoldingSession>();
    const NullService service(session);
    NullClient client;
    const auto component = std::make_shared<android::VppComponent>();
    component->enable("bench", &client, false);
    component->config(64, 64, 1, ConfigParams{1, 0, 1, 0}, true);
    std::vector<sp<GraphicBuffer>> buffers;
    for (int i = 0; i < kSources; ++i)
        buffers.emplace_back(new GraphicBuffer(64, 64, 1, 0x300));
    for (int i = 0; i < kOutputs; ++i) {
        buffers.emplace_back(new GraphicBuffer(64, 64, 0x7FA30C06, 0x300));
    }
    Hand hand;
    for (auto _ : state) {
        std::vector<double> blocked, bare;
        for (int n = 0; n < kFlushes; ++n) {
            fill(*component, buffers);
            const auto begin = Clock::now();
            component->flushsync();
            blocked.push_back(microseconds(Clock::now() - begin - session->answerTime));
            bare.push_back(microseconds(handOver(hand)));
        }
        for (auto* values : {&blocked, &bare})
            std::sort(values->begin(), values->end());
        state.counters["p50_us"] = blocked[kFlushes / 2];
        state.counters["p99_us"] = blocked[kFlushes * 99 / 100];
        state.counters["hand_over_p50_us"] = bare[kFlushes / 2];
        state.counters["hand_over_p99_us"] = bare[kFlushes * 99 / 100];
        state.counters["ratio_p50"] = blocked[kFlushes / 2] / bare[kFlushes / 2];
    }
    component->disable();
}
BENCHMARK(flushsync)->Iterations(1);

}  // namespace
}  // namespace qoz::bench

BENCHMARK_MAIN();
