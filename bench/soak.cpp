// SPDX-License-Identifier: Apache-2.0
// Plays many small frames through four components at once. Checks that no frame is lost, doubled or
// out of order. Also checks that between a tenth of the run and its end the resident memory grows
// by 1 MiB at most, and the number of descriptors does not change. With --misbehave, plays them
// through 64 components, of which eight have a session that is late or silent, and checks that the
// other components are not affected.
//
//     soak [--misbehave] [total number of frames; default 100000]
#include <aidl/vendor/vuq/hardware/vpp/BnVppService.h>
#include <client/LiveClient.h>
#include <host/control.h>
#include <host/platform/ServiceRegistry.h>
#include <host/vppservice/Service.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <string>
#include <thread>
#include <vector>

#include "support/NullSession.h"

namespace qoz::bench {
namespace {

using namespace std::chrono_literals;
using client::LiveClient;
using Clock = std::chrono::steady_clock;

constexpr uint32_t kWidth = 64;
constexpr uint32_t kHeight = 48;
constexpr uint32_t kFactor = 1;
constexpr int64_t kFrameNs = 16000000;
constexpr size_t kSources = 4;
constexpr size_t kSourcesOnce = 40;  // for a component whose service returns nothing
constexpr size_t kOutputs = 8;
constexpr int64_t kAhead = 4;  // frames in flight in a healthy component; they need all outputs
constexpr long kMaxGrowth = 1 << 20;

// The errors of one component or of several, and the longest operation.
struct Tally {
    uint64_t lost = 0;
    uint64_t doubled = 0;
    uint64_t disordered = 0;
    Clock::duration longest{};  // of a flush, or of a frame sent and its outputs queued
};

// One component with its client, used by one thread. `patient` is whether the client waits for
// frames and sources. It is false if the service returns nothing; then each source is sent only
// once.
class Player {
  public:
    explicit Player(bool patient)
        : mPatient(patient), mClient(patient ? kSources : kSourcesOnce, kOutputs) {
        mClient.onFrame = [this](const auto&, const auto& returned) {
            if (mFrames > 0 && returned.timestamp <= mNewest) ++mTally.disordered;
            mNewest = returned.timestamp;
            ++mFrames;
        };
    }

    bool start() {
        if (!mClient.enable()) return false;
        mClient.vpp->config(kWidth, kHeight, 1, {1, 0, kFactor, 0}, true);
        return true;
    }

    // Sends frames and then flushes, so that the service returns all buffers.
    void play(uint64_t frames) {
        if (!mPatient) frames = std::min(frames, uint64_t{kSourcesOnce});
        for (uint64_t n = 0; n < frames; ++n) {
            if (mPatient && !mClient.waitForTimestamp(microseconds(mNow - kAhead * kFrameNs)))
                break;
            mNow += kFrameNs;
            (void)mClient.waitForSource();
            time([&] { (void)mClient.send(kWidth, kHeight, mNow); });
        }
        // If this times out, the missing frames are counted as lost.
        if (mPatient) (void)mClient.waitForTimestamp(microseconds(mNow));
        time([&] { mClient.vpp->flushsync(); });
        if (frames > 0) mExpected += 1 + (frames - 1) * (kFactor + 1);
    }

    void finish() {
        time([&] { mClient.disable(); });
        const client::Ledger ledger = mClient.ledger();
        mTally.lost = ledger.outstanding() + (mFrames < mExpected ? mExpected - mFrames : 0);
        mTally.doubled = ledger.totals().doubled + ledger.totals().wrongPort;
    }

    const Tally& tally() const { return mTally; }

  private:
    static uint64_t microseconds(int64_t nanoseconds) {
        return static_cast<uint64_t>(std::max<int64_t>(nanoseconds, 0)) / 1000;
    }

    template <typename Act>
    void time(const Act& act) {
        const auto begin = Clock::now();
        act();
        mTally.longest = std::max(mTally.longest, Clock::now() - begin);
    }

    const bool mPatient;
    LiveClient mClient;
    int64_t mNow = 0;
    uint64_t mExpected = 0;  // number of frames that the service must return
    uint64_t mFrames = 0;
    uint64_t mNewest = 0;
    Tally mTally;
};

// The resources of this process, which must not grow during a long run.
struct Holding {
    long resident;  // bytes
    int descriptors;

    static Holding now() {
        long total = 0;
        long resident = 0;
        std::ifstream("/proc/self/statm") >> total >> resident;
        return {resident * sysconf(_SC_PAGESIZE), host::openDescriptors()};
    }
};

// A session that accepts everything, is slow to accept a buffer, and never completes a flush.
class LateSession : public NullSession {
    Status queueBuf(Port, const vpp::VppBuffer&, Error*) override {
        std::this_thread::sleep_for(200ms);
        return Status::ok();
    }
};

bool isFaulty(size_t nth) {
    return nth % 8 == 7;
}

// A service whose every eighth session is late or silent; the other sessions are real. Used by one
// thread.
class MixedService : public vpp::BnVppService {
  public:
    // A component that ends in ERROR does not close its session. The session and the component then
    // own each other, until the session is terminated here.
    void endFaultySessions() {
        for (const auto& session : mFaulty)
            (void)session->terminateSession();
    }
    ndk::ScopedAStatus getNewVppSession(int32_t flags, std::shared_ptr<vpp::IVpp>* out) override {
        const size_t nth = mGiven++;
        if (!isFaulty(nth)) return mReal->getNewVppSession(flags, out);
        if (nth % 16 == 7) {
            *out = ndk::SharedRefBase::make<LateSession>();
        } else {
            *out = ndk::SharedRefBase::make<NullSession>();
        }
        mFaulty.push_back(*out);
        return ndk::ScopedAStatus::ok();
    }
    ndk::ScopedAStatus getSessionCount(int32_t* out) override {
        return mReal->getSessionCount(out);
    }

  private:
    const std::shared_ptr<host::vppservice::Service> mReal =
        ndk::SharedRefBase::make<host::vppservice::Service>();
    std::vector<std::shared_ptr<vpp::IVpp>> mFaulty;
    size_t mGiven = 0;
};

bool report(const char* who, const Tally& all) {
    const double seconds = std::chrono::duration<double>(all.longest).count();
    std::printf("%s: %lu lost, %lu doubled, %lu out of order; longest operation %.3f s\n", who,
                all.lost, all.doubled, all.disordered, seconds);
    return all.lost == 0 && all.doubled == 0 && all.disordered == 0;
}

using Players = std::vector<std::unique_ptr<Player>>;

// Runs `act` for all players at once, each on its own thread, and waits for all.
template <typename Act>
void onThreads(const Players& players, const Act& act) {
    std::vector<std::thread> threads;
    for (const auto& player : players)
        threads.emplace_back([&player = *player, &act] { act(player); });
    for (auto& thread : threads)
        thread.join();
}

Tally sum(const Players& players, bool faulty, bool mixed) {
    Tally all;
    for (size_t i = 0; i < players.size(); ++i) {
        if ((mixed && isFaulty(i)) != faulty) continue;
        const Tally& one = players[i]->tally();
        all.lost += one.lost;
        all.doubled += one.doubled;
        all.disordered += one.disordered;
        all.longest = std::max(all.longest, one.longest);
    }
    return all;
}

bool startAll(Players& players, size_t count, bool mixed) {
    for (size_t i = 0; i < count; ++i) {
        players.push_back(std::make_unique<Player>(!mixed || !isFaulty(i)));
        if (!players.back()->start()) return false;
    }
    return true;
}

bool soak(uint64_t frames) {
    const host::VppService service;
    Players players;
    if (!startAll(players, 4, false)) return false;
    const uint64_t each = frames / players.size();
    onThreads(players, [each](Player& player) { player.play(each / 10); });
    const Holding early = Holding::now();
    onThreads(players, [each](Player& player) { player.play(each - each / 10); });
    const Holding late = Holding::now();
    onThreads(players, [](Player& player) { player.finish(); });
    const long growth = late.resident - early.resident;
    std::printf(
        "%lu frames; resident %ld KiB at a tenth, %ld KiB at the end (%+ld KiB)\n"
        "descriptors %d at a tenth, %d at the end\n",
        each * players.size(), early.resident / 1024, late.resident / 1024, growth / 1024,
        early.descriptors, late.descriptors);
    const bool good = report("all", sum(players, false, false));
    return good && growth <= kMaxGrowth && late.descriptors == early.descriptors;
}

bool misbehave(uint64_t frames) {
    const auto service = ndk::SharedRefBase::make<MixedService>();
    const std::string name = host::defaultInstance<vpp::IVppService>();
    host::addService(name, service->asBinder());
    Players players;
    const bool started = startAll(players, 64, true);
    if (started) {
        onThreads(players, [each = frames / players.size()](Player& player) {
            player.play(each);
            player.finish();
        });
    }
    host::removeService(name);
    service->endFaultySessions();
    (void)report("the 8 that are late or silent", sum(players, true, true));
    const Tally healthy = sum(players, false, true);
    // Far below the limit of three seconds for which the components of faulty sessions wait.
    return report("the other 56", healthy) && started && healthy.longest < 1s;
}

}  // namespace
}  // namespace qoz::bench

int main(int argc, char** argv) {
    const bool mixed = argc > 1 && std::string(argv[1]) == "--misbehave";
    const char* count = argc > (mixed ? 2 : 1) ? argv[mixed ? 2 : 1] : "100000";
    const uint64_t frames = std::strtoull(count, nullptr, 10);
    if (frames < 1000) {
        std::fprintf(stderr, "usage: soak [--misbehave] [total number of frames, at least 1000]\n");
        return 2;
    }
    qoz::host::setLogSink([](const qoz::host::LogLine&) {});
    const bool good = mixed ? qoz::bench::misbehave(frames) : qoz::bench::soak(frames);
    return good ? 0 : 1;
}
