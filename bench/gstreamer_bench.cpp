// SPDX-License-Identifier: Apache-2.0
// The time for one buffer from one end of the component to the other, compared with the same
// pass-through in GStreamer. Eight buffers are in flight on both sides, and no pixels are accessed.
//
// GStreamer: `appsrc ! queue ! appsink`. For each buffer, one descriptor is duplicated and wrapped
// by GStreamer's allocator for such memory; two threads hand the buffer over (that of the source
// and that of the queue); and the callback of the sink pulls the buffer and releases it, which
// closes the descriptor.
//
// The component, passed through: process() with an NV12 source, for which one descriptor is
// duplicated and closed; two hand-overs (the service's thread and the output worker); and the
// client's onBufferDone().
//
// The component, a whole frame: process() with an RGBA source, for which the converter does
// nothing, and with an output buffer; two descriptors; the return of both; and the same hand-overs.
//
// The output worker has its real-time priority if the process is permitted to set it.
#include <client/Types.h>
#include <fcntl.h>
#include <gst/allocators/gstfdmemory.h>
#include <gst/app/gstappsink.h>
#include <gst/app/gstappsrc.h>
#include <src/vpp/RecordFields.h>

#include <condition_variable>
#include <deque>
#include <mutex>
#include <semaphore>
#include <thread>

#include "support/Feed.h"
#include "support/Rounds.h"

namespace qoz::bench {
namespace {

constexpr int kSamples = 10;   // per round
constexpr int kBuffers = 500;  // per sample
constexpr int kInFlight = 8;
constexpr double kAim = 1.0;

// Limits the buffers in flight. The sending thread takes a place for each buffer, and the receiving
// thread gives it back.
class Places {
  public:
    void take() { mFree.acquire(); }
    void giveBack() { mFree.release(); }
    void awaitAll() {
        for (int n = 0; n < kInFlight; ++n)
            take();
        mFree.release(kInFlight);
    }

  private:
    std::counting_semaphore<kInFlight> mFree{kInFlight};
};

// Sends buffers with `feed` and returns the nanoseconds for each, until the last has arrived.
template <typename Feeding>
double throughput(Places& places, Feeding feed) {
    const auto begin = Clock::now();
    for (int n = 0; n < kBuffers; ++n) {
        places.take();
        feed();
    }
    places.awaitAll();
    return nanoseconds(Clock::now() - begin) / kBuffers;
}

// A session that returns every frame on a thread of its own. If `passes` is set, it returns the
// source itself as the output (a pass-through); otherwise it returns the oldest output buffer.
class ReturningSession : public NullSession {
  public:
    explicit ReturningSession(bool passes) : mPasses(passes) {}
    ~ReturningSession() override {
        {
            const std::lock_guard lock(mLock);
            mEnd = true;
            mCond.notify_one();
        }
        mThread.join();
    }

    Status queueBuf(Port port, const vpp::VppBuffer& buffer, Error*) override {
        {
            const std::lock_guard lock(mLock);
            if (port == Port::OUTPUT) {
                mQueuedOutputs.push_back(buffer.cookie);
                return Status::ok();
            }
            mSources.push_back({android::unsignedOf(buffer.timestamp), buffer.cookie});
        }
        mCond.notify_one();
        return Status::ok();
    }

  private:
    struct Source {
        uint64_t timestamp;
        int64_t cookie;
    };

    void serve() {
        std::unique_lock lock(mLock);
        for (;;) {
            mCond.wait(lock, [this] { return mEnd || !mSources.empty(); });
            if (mEnd) return;
            const Source source = mSources.front();
            mSources.pop_front();
            int64_t filled = source.cookie;
            if (!mPasses) {
                filled = mQueuedOutputs.front();
                mQueuedOutputs.pop_front();
            }
            lock.unlock();
            giveBack(source, filled);
            lock.lock();
        }
    }

    void giveBack(const Source& source, int64_t filled) {
        vpp::VppError result = vpp::VppError::VPP_OK;
        vpp::VppBuffer record;
        record.timestamp = source.timestamp;
        record.cookie = source.cookie;
        if (!mPasses) (void)callbacks->inputBufferDone(record, &result);
        record.cookie = filled;
        record.pixelFilledLen = 1;
        (void)callbacks->outputBufferDone(record, &result);
    }

    const bool mPasses;
    std::mutex mLock;
    std::condition_variable mCond;
    std::deque<Source> mSources;
    std::deque<int64_t> mQueuedOutputs;
    bool mEnd = false;
    std::thread mThread{[this] { serve(); }};
};

// The component, fed by the calling thread.
class Component {
  public:
    explicit Component(bool passes) : mPasses(passes) {}

    double sample() {
        return throughput(mPlaces, [this] {
            if (!mPasses) mFeed.queueOutput(mSlot = (mSlot + 1) % kInFlight);
            mFeed.send();
        });
    }

  private:
    const bool mPasses;
    int32_t mSlot = 0;
    Places mPlaces;
    client::DoneCallback mClient{[this](uint32_t port, int32_t, uint32_t, uint64_t) {
        if (port == client::kOutputPort) mPlaces.giveBack();
    }};
    Feed mFeed{{.sideBuffers = false,
                .entries = 0,
                .session = ndk::SharedRefBase::make<ReturningSession>(mPasses),
                .client = &mClient,
                .format = mPasses ? kNv12 : kRgba}};
};

struct Unref {
    void operator()(void* object) const { gst_object_unref(object); }
};
template <typename Type>
using Owned = std::unique_ptr<Type, Unref>;

// The GStreamer pipeline, fed by the calling thread.
class Pipeline {
  public:
    Pipeline() {
        // The limits of the pipeline are off, because Places is the limit. The sink does not wait
        // for a clock or for the first buffer.
        mPipeline.reset(
            gst_parse_launch("appsrc name=in format=time emit-signals=false max-bytes=0 ! "
                             "queue max-size-buffers=0 max-size-bytes=0 max-size-time=0 ! "
                             "appsink name=out sync=false async=false",
                             nullptr));
        mIn.reset(gst_bin_get_by_name(GST_BIN(mPipeline.get()), "in"));
        mOut.reset(gst_bin_get_by_name(GST_BIN(mPipeline.get()), "out"));
        GstAppSinkCallbacks callbacks{};
        callbacks.new_sample = &Pipeline::onSample;
        gst_app_sink_set_callbacks(GST_APP_SINK(mOut.get()), &callbacks, &mPlaces, nullptr);
        gst_element_set_state(mPipeline.get(), GST_STATE_PLAYING);
    }
    ~Pipeline() { gst_element_set_state(mPipeline.get(), GST_STATE_NULL); }

    double sample() {
        return throughput(mPlaces, [this] { push(); });
    }

  private:
    void push() {
        const int fd = fcntl(mMemory->handle->data[0], F_DUPFD_CLOEXEC, 0);
        GstBuffer* buffer = gst_buffer_new();
        gst_buffer_append_memory(
            buffer, gst_fd_allocator_alloc(mAllocator.get(), fd, mBytes, GST_FD_MEMORY_FLAG_NONE));
        GST_BUFFER_PTS(buffer) = mTimestamp += 16000000;
        gst_app_src_push_buffer(GST_APP_SRC(mIn.get()), buffer);
    }

    static GstFlowReturn onSample(GstAppSink* sink, gpointer places) {
        gst_sample_unref(gst_app_sink_pull_sample(sink));
        static_cast<Places*>(places)->giveBack();
        return GST_FLOW_OK;
    }

    static constexpr gsize mBytes = gsize{kWidth} * kHeight * 3 / 2;
    Places mPlaces;
    const android::sp<android::GraphicBuffer> mMemory = makeBuffer(kWidth, kHeight, kNv12);
    const Owned<GstAllocator> mAllocator{gst_fd_allocator_new()};
    Owned<GstElement> mPipeline, mIn, mOut;
    GstClockTime mTimestamp = 0;
};

// Argument: 1 to pass the source itself through, 0 for a source and an output buffer.
void passThrough(benchmark::State& state) {
    const bool passes = state.range(0) != 0;
    gst_init(nullptr, nullptr);
    Component component(passes);
    Pipeline pipeline;
    for (auto _ : state) {
        const Rounds all = inTurn(
            kSamples, [&] { return component.sample(); }, [&] { return pipeline.sample(); });
        report(state,
               passes ? "GStreamer: a buffer passed through"
                      : "GStreamer: source and output buffer against one passed through",
               all, kAim);
    }
}
BENCHMARK(passThrough)->Arg(1)->Arg(0)->Iterations(1);

}  // namespace
}  // namespace qoz::bench
