// The component's own share of a frame: process() of one source packet, with a converter and a
// service that do nothing, as a multiple of straight code that duplicates and closes the same
// descriptors, makes the same records and keeps the same maps. Both sides in turn within one run,
// medians of rounds.
#include <aidlcommonsupport/NativeHandle.h>
#include <benchmark/benchmark.h>
#include <fcntl.h>
#include <host/control.h>
#include <qoz/VppComponent.h>
#include <ui/GraphicBufferMapper.h>

#include <algorithm>
#include <chrono>
#include <set>
#include <unordered_map>

#include "support/NullSession.h"

namespace qoz::bench {
namespace {

using android::ConfigParams;
using android::GraphicBuffer;
using android::QOZBufferInfo;
using android::sp;
using Clock = std::chrono::steady_clock;

constexpr uint32_t kW = 1280;
constexpr uint32_t kH = 720;
constexpr int kRounds = 15;
constexpr int kFramesPerRound = 2000;

// Nanoseconds a frame.
template <typename Frame>
double timeFrames(Frame frame) {
    Clock::duration spent{};
    for (int n = 0; n < kFramesPerRound; ++n)
        spent += frame();
    return std::chrono::duration<double, std::nano>(spent).count() / kFramesPerRound;
}

// Feeds frames through a component and gives each back to its pool outside the measured time.
class ProcessSide {
  public:
    explicit ProcessSide(bool sideBuffers) : mService(mSession) {
        host::setProperty("debug.vpp.frc.game.ext.mbi", sideBuffers ? "true" : "false");
        mComponent->enable("bench", &mClient, false);
        mComponent->config(kW, kH, 1, ConfigParams{1, 0, 1, 0}, true);
        for (auto& source : mSources)
            source = new GraphicBuffer(kW, kH, 1, 0x300);
        for (int i = 0; i < 8; ++i)
            (void)frame();
    }
    ~ProcessSide() { mComponent->disable(); }

    Clock::duration frame() {
        mTimestamp += 16000000;
        std::vector<QOZBufferInfo> packet{
            {static_cast<int32_t>(mNext), mSources[mNext], nullptr, mTimestamp, {}}};
        mNext = (mNext + 1) % mSources.size();
        const auto begin = Clock::now();
        mComponent->process(&packet, nullptr);
        const auto spent = Clock::now() - begin;
        vpp::VppBuffer returned;
        returned.timestamp = static_cast<uint64_t>(mTimestamp / 1000);
        returned.cookie = 0x10000;
        vpp::VppError result = vpp::VppError::VPP_OK;
        (void)mSession->callbacks->inputBufferDone(returned, &result);
        return spent;
    }

  private:
    std::shared_ptr<NullSession> mSession = ndk::SharedRefBase::make<NullSession>();
    NullService mService;
    NullClient mClient;
    std::shared_ptr<android::VppComponent> mComponent = std::make_shared<android::VppComponent>();
    std::array<sp<GraphicBuffer>, 3> mSources;
    size_t mNext = 0;
    int64_t mTimestamp = 0;
};

// The same work as plain statements.
class FloorSide {
  public:
    explicit FloorSide(bool sideBuffers) {
        mBuffers.emplace_back(new GraphicBuffer(kW, kH, 0x7FA30C06, 0x300));
        if (!sideBuffers) return;
        for (int i = 0; i < 2; ++i)
            mBuffers.emplace_back(new GraphicBuffer(80, 45, 1, 0x300));
        mBuffers.emplace_back(new GraphicBuffer(kW / 2, kH / 2, 0x7FA30C06, 0x300));
    }

    Clock::duration frame() {
        ++mTimestamp;
        const auto begin = Clock::now();
        takeAndKeep();
        queue();
        const auto spent = Clock::now() - begin;
        mFree.insert(mTimestamp);
        return spent;
    }

  private:
    // The pool's maps: the oldest free entry goes, this frame's comes; one for each pool.
    void takeAndKeep() {
        if (!mFree.empty()) {
            mInFlight.erase(*mFree.begin());
            mSideInFlight.erase(*mFree.begin());
            mFree.erase(mFree.begin());
        }
        mInFlight.emplace(mTimestamp, mBuffers[0]);
        if (mBuffers.size() == 4) {
            mSideInFlight.emplace(mTimestamp, std::tuple(mBuffers[1], mBuffers[2], mBuffers[3]));
        }
    }

    void share(const sp<GraphicBuffer>& buffer, aidl::android::hardware::common::NativeHandle* to,
               uint32_t* size) {
        native_handle_t* handle = native_handle_create(1, 0);
        uint64_t bytes = 0;
        mMapper.getAllocationSize(buffer->handle, &bytes);
        *size = static_cast<uint32_t>(bytes);
        handle->data[0] = fcntl(buffer->handle->data[0], F_DUPFD_CLOEXEC, 0);
        *to = android::makeToAidl(handle);
        native_handle_delete(handle);
    }

    void queue() {
        static constexpr std::array kNames{"vpp.metabuf.mv.fw", "vpp.metabuf.mv.bw",
                                           "vpp.metabuf.scale.0p5"};
        vpp::VppBuffer record;
        record.metaBuffers.resize(mBuffers.size() - 1);
        for (size_t i = 0; i < record.metaBuffers.size(); ++i) {
            record.metaBuffers[i].metaName = kNames[i];
            share(mBuffers[i + 1], &record.metaBuffers[i].metaHandle,
                  &record.metaBuffers[i].metaAllocLen);
        }
        share(mBuffers[0], &record.pixelHandle, &record.pixelAllocLen);
        record.timestamp = mTimestamp;
        vpp::VppError result = vpp::VppError::VPP_OK;
        (void)mSession->queueBuf(vpp::VppPort::INPUT, record, &result);
    }

    std::shared_ptr<vpp::IVpp> mSession = ndk::SharedRefBase::make<NullSession>();
    android::GraphicBufferMapper& mMapper = android::GraphicBufferMapper::getInstance();
    std::vector<sp<GraphicBuffer>> mBuffers;
    std::unordered_map<uint64_t, sp<GraphicBuffer>> mInFlight;
    std::unordered_map<uint64_t,
                       std::tuple<sp<GraphicBuffer>, sp<GraphicBuffer>, sp<GraphicBuffer>>>
        mSideInFlight;
    std::set<uint64_t> mFree;
    uint64_t mTimestamp = 0;
};

// Argument: whether frames carry side buffers.
void sourcePacket(benchmark::State& state) {
    const bool sideBuffers = state.range(0) != 0;
    ProcessSide process(sideBuffers);
    FloorSide floor(sideBuffers);
    for (auto _ : state) {
        std::vector<double> ratios, ours, bare;
        for (int round = 0; round < kRounds; ++round) {
            ours.push_back(timeFrames([&] { return process.frame(); }));
            bare.push_back(timeFrames([&] { return floor.frame(); }));
            ratios.push_back(ours.back() / bare.back());
        }
        for (auto* values : {&ratios, &ours, &bare})
            std::sort(values->begin(), values->end());
        state.counters["process_ns"] = ours[kRounds / 2];
        state.counters["floor_ns"] = bare[kRounds / 2];
        state.counters["ratio"] = ratios[kRounds / 2];
        state.counters["ratio_min"] = ratios.front();
        state.counters["ratio_max"] = ratios.back();
    }
}
BENCHMARK(sourcePacket)->ArgName("side_buffers")->Arg(0)->Arg(1)->Iterations(1);

}  // namespace
}  // namespace qoz::bench

BENCHMARK_MAIN();
