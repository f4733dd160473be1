// How long flushsync() blocks the client with 8 source frames and 12 output buffers in flight, less
// the time that the service took to answer; as a multiple of a bare hand-over between two threads,
// there and back, in the same run.
#include <condition_variable>
#include <mutex>

#include "support/Buffers.h"
#include "support/Hand.h"
#include "support/NullSession.h"
#include "support/Rounds.h"

namespace qoz::bench {
namespace {

using android::GraphicBuffer;
using android::QOZBufferInfo;
using android::sp;

constexpr int kFlushes = 40;  // a round
constexpr int kSources = 8;
constexpr int kOutputs = 12;

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

class HandOver {
  public:
    // There and back.
    double measure() {
        bool back = false;
        const auto begin = Clock::now();
        mHand.give([&] {
            const std::lock_guard held(mLock);
            back = true;
            mCond.notify_one();
        });
        std::unique_lock held(mLock);
        mCond.wait(held, [&] { return back; });
        return nanoseconds(Clock::now() - begin);
    }

  private:
    Hand mHand;
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
    NullClient client;
    const auto component = std::make_shared<android::VppComponent>();
    component->enable("bench", &client, false);
    component->config(64, 64, 1, {1, 0, 1, 0}, true);
    std::vector<sp<GraphicBuffer>> buffers;
    for (int i = 0; i < kSources + kOutputs; ++i)
        buffers.push_back(makeBuffer(64, 64, i < kSources ? kRgba : kNv12));
    HandOver bare;
    for (auto _ : state) {
        Rounds all;
        for (int round = 0; round < rounds(); ++round) {
            std::vector<double> ours, peer;
            for (int n = 0; n < reduced(kFlushes); ++n) {
                ours.push_back(measureFlush(*component, *session, buffers));
                peer.push_back(bare.measure());
            }
            all.add(median(ours), median(peer));
        }
        report(state, "flushsync: 8 sources and 12 outputs in flight", all, kNoAim);
    }
    component->disable();
}
BENCHMARK(flushsync)->Iterations(1);

}  // namespace
}  // namespace qoz::bench
