// SPDX-License-Identifier: Apache-2.0
// The time from the service's outputBufferDone to the client's onBufferDone, compared with a
// minimal hand-over of the same record between two threads. Also the time for which
// outputBufferDone occupies its binder thread while a callback of the client is slow.
#include <pthread.h>

#include <atomic>
#include <condition_variable>
#include <deque>
#include <mutex>
#include <semaphore>
#include <thread>

#include "support/Feed.h"
#include "support/Rounds.h"

namespace qoz::bench {
namespace {

using namespace std::chrono_literals;

// A client that records the time of its callback.
class Arrival {
  public:
    android::IQOZCallback& client() { return mClient; }
    Clock::time_point await() {
        mCame.acquire();
        return mAt;
    }

  private:
    client::DoneCallback mClient{[this](uint32_t, int32_t, uint32_t, uint64_t) {
        mAt = Clock::now();
        mCame.release();
    }};
    Clock::time_point mAt;
    std::binary_semaphore mCame{0};
};

// The minimal hand-over: one lock, one condition variable and one queue. The receiving thread has
// the same scheduling class as the output worker and calls the client once for each record.
class BareHandOver {
  public:
    explicit BareHandOver(android::IQOZCallback& client) : mClient(client) {
        const sched_param priority{.sched_priority = 2};
        (void)pthread_setschedparam(mThread.native_handle(), SCHED_FIFO, &priority);
    }
    ~BareHandOver() {
        give({.slot = -1});
        mThread.join();
    }
    BareHandOver(const BareHandOver&) = delete;
    BareHandOver& operator=(const BareHandOver&) = delete;

    struct Record {
        int32_t slot = 0;
        uint32_t valid = 1;
        uint64_t timestamp = 0;
    };
    void give(const Record& record) {
        {
            const std::lock_guard lock(mLock);
            mQueue.push_back(record);
        }
        mCond.notify_one();  // without the lock, so that the woken thread does not wait for it
    }

  private:
    void serve() {
        for (;;) {
            std::unique_lock lock(mLock);
            mCond.wait(lock, [this] { return !mQueue.empty(); });
            const Record next = mQueue.front();
            mQueue.pop_front();
            lock.unlock();
            if (next.slot < 0) return;
            mClient.onBufferDone(0, next.slot, next.valid, next.timestamp);
        }
    }

    android::IQOZCallback& mClient;
    std::mutex mLock;
    std::condition_variable mCond;
    std::deque<Record> mQueue;
    std::thread mThread{[this] { serve(); }};
};

// Returns the nanoseconds from the call of `give` to the client's callback. First waits until the
// receiving thread is likely to be asleep.
template <typename Give>
double timeArrival(Arrival& arrival, Give give) {
    std::this_thread::sleep_for(50us);
    const auto begin = Clock::now();
    give();
    return nanoseconds(arrival.await() - begin);
}

// Binds the calling thread, and the threads that it creates, to one processor. With two processors
// a wake-up may have to start an idle processor. That depends on the scheduler and takes much
// longer than the work that the bench measures.
class OneProcessor {
  public:
    OneProcessor() {
        pthread_getaffinity_np(pthread_self(), sizeof mBefore, &mBefore);
        cpu_set_t one;
        CPU_ZERO(&one);
        CPU_SET(static_cast<size_t>(sched_getcpu()), &one);
        pthread_setaffinity_np(pthread_self(), sizeof one, &one);
    }
    ~OneProcessor() { pthread_setaffinity_np(pthread_self(), sizeof mBefore, &mBefore); }

    OneProcessor(const OneProcessor&) = delete;
    OneProcessor& operator=(const OneProcessor&) = delete;

  private:
    cpu_set_t mBefore{};
};

// Argument: the percentile.
void delivery(benchmark::State& state) {
    constexpr int kSamples = 1000;  // per round
    const auto percent = static_cast<int>(state.range(0));
    const OneProcessor pinned;
    Arrival arrival;
    Feed feed({.sideBuffers = false, .entries = 0, .client = &arrival.client()});
    BareHandOver bare(arrival.client());
    for (auto _ : state) {
        const Rounds all = inTurn(
            kSamples,
            [&] {
                feed.queueOutput();
                return timeArrival(arrival, [&] { feed.returnOutput(0); });
            },
            [&] { return timeArrival(arrival, [&] { bare.give({}); }); }, percent / 100.0);
        report(state, "delivery: outputBufferDone to onBufferDone, p" + std::to_string(percent),
               all, percent == 50 ? 1.2 : 1.5);
    }
}
BENCHMARK(delivery)->Arg(50)->Arg(99)->Iterations(1);

// A client whose callback takes ten milliseconds for slot 0 and returns at once for other slots.
class BusyClient {
  public:
    android::IQOZCallback* callback() { return &mCallback; }
    bool busy() const { return mBusy; }
    void awaitBusy() { mEntered.acquire(); }
    void await(int deliveries) {
        for (int n = 0; n < deliveries; ++n)
            mDelivered.acquire();
    }

  private:
    client::DoneCallback mCallback{[this](uint32_t, int32_t slot, uint32_t, uint64_t) {
        if (slot == 0) {
            mBusy = true;
            mEntered.release();
            std::this_thread::sleep_for(10ms);
            mBusy = false;
        }
        mDelivered.release();
    }};
    std::atomic<bool> mBusy = false;
    std::binary_semaphore mEntered{0};
    std::counting_semaphore<> mDelivered{0};
};

// Starts one slow callback and, while it runs, returns further buffers as a binder thread would.
// Adds the time of each return to `held` if the return began and ended during the slow callback.
void sampleHeld(Feed& feed, BusyClient& client, std::vector<double>& held) {
    constexpr int32_t kCalls = 48;
    for (int32_t slot = 0; slot <= kCalls; ++slot)
        feed.queueOutput(slot);
    feed.returnOutput(0);
    client.awaitBusy();
    for (int32_t slot = 1; slot <= kCalls; ++slot) {
        std::this_thread::sleep_for(50us);
        const bool before = client.busy();
        const auto begin = Clock::now();
        feed.returnOutput(slot);
        const double spent = nanoseconds(Clock::now() - begin);
        if (before && client.busy()) held.push_back(spent);
    }
    client.await(kCalls + 1);
}

void heldBinderThread(benchmark::State& state) {
    constexpr int kCallbacks = 80;  // per round
    constexpr double kLimitNs = 100000;
    BusyClient client;
    Feed feed({.sideBuffers = false, .entries = 0, .client = client.callback()});
    for (auto _ : state) {
        std::vector<double> all, ofRounds;
        for (int round = 0; round < rounds(); ++round) {
            std::vector<double> held;
            for (int n = 0; n < reduced(kCallbacks); ++n)
                sampleHeld(feed, client, held);
            all.insert(all.end(), held.begin(), held.end());
            ofRounds.push_back(percentile(held, 0.999));
        }
        state.SetLabel("delivery: binder thread held while the client takes 10 ms, p99.9");
        state.counters["ours_ns"] = percentile(all, 0.999);
        state.counters["ours_min_ns"] = percentile(ofRounds, 0);
        state.counters["ours_max_ns"] = percentile(ofRounds, 1);
        state.counters["limit_ns"] = kLimitNs;
        state.counters["p50_ns"] = median(all);
        state.counters["p99_ns"] = percentile(all, 0.99);
        state.counters["samples"] = static_cast<double>(all.size());
    }
}
BENCHMARK(heldBinderThread)->Iterations(1);

}  // namespace
}  // namespace qoz::bench
