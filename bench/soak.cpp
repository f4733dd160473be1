// SPDX-License-Identifier: Apache-2.0
// Many small frames through four components at once: nothing lost, nothing twice, nothing out of
// order, and at the end 1 MiB more than a tenth of the way in at most, and no descriptor. With
// --misbehave: 64 components, eight of which have a session that is late or silent; the others
// notice nothing.
//
//     soak [--misbehave] [frames in all, 100000]
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
using android::GraphicBuffer;
using client::LiveClient;
using Clock = std::chrono::steady_clock;

constexpr uint32_t kWidth = 64;
constexpr uint32_t kHeight = 48;
constexpr uint32_t kFactor = 1;
constexpr int64_t kFrameNs = 16000000;
constexpr size_t kSources = 4;
constexpr size_t kSourcesOnce = 40;  // of a component whose service gives nothing back
constexpr size_t kOutputs = 8;
constexpr int64_t kAhead = 4;  // frames in flight of a healthy component: all its outputs
constexpr long kMaxGrowth = 1 << 20;

// What went wrong with the frames of one component or of several.
struct Tally {
    uint64_t lost = 0;
    uint64_t doubled = 0;
    uint64_t disordered = 0;
    Clock::duration longest{};  // of a flush, or of a frame sent and its outputs queued
};

// One component with its client. Of one that gives nothing back each source can be sent once.
class Player {
  public:
    explicit Player(bool patient)
        : mPatient(patient), mClient(patient ? kSources : kSourcesOnce, kOutputs) {
        mClient.onFrame = [this](GraphicBuffer&, uint64_t timestamp) {
            if (mFrames > 0 && timestamp <= mNewest) ++mTally.disordered;
            mNewest = timestamp;
            ++mFrames;
        };
    }

    bool start() {
        if (!mClient.enable()) return false;
        mClient.vpp->config(kWidth, kHeight, 1, {1, 0, kFactor, 0}, true);
        return true;
    }

    // Ends when everything is back that comes back.
    void play(uint64_t frames) {
        if (!mPatient) frames = std::min(frames, uint64_t{kSourcesOnce});
        for (uint64_t n = 0; n < frames; ++n) {
            if (mPatient && !mClient.waitForTimestamp(microseconds(mNow - kAhead * kFrameNs)))
                break;
            mNow += kFrameNs;
            (void)mClient.waitForSource();
            time([&] { (void)mClient.send(kWidth, kHeight, mNow); });
        }
        // Gives up when nothing comes at all: what is missing shows in the tally.
        if (mPatient) (void)mClient.waitForTimestamp(microseconds(mNow));
        time([&] { mClient.vpp->flushsync(); });
        if (frames > 0) mExpected += 1 + (frames - 1) * (kFactor + 1);
    }

    void finish() {
        time([&] { mClient.vpp->disable(); });
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

    const bool mPatient;  // waits for what is to come out
    LiveClient mClient;
    int64_t mNow = 0;
    uint64_t mExpected = 0;  // frames that are to come out
    uint64_t mFrames = 0;
    uint64_t mNewest = 0;
    Tally mTally;
};

// What the process holds; nothing may grow in a long run.
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

// Takes everything; each queueing takes a while, and no flush is ever answered.
class LateSession : public NullSession {
    Status queueBuf(Port, const vpp::VppBuffer&, Error*) override {
        std::this_thread::sleep_for(200ms);
        return Status::ok();
    }
};

bool isFaulty(size_t nth) {
    return nth % 8 == 7;
}

// Gives real sessions, but every eighth is late or silent. Asked by one thread.
class MixedService : public vpp::BnVppService {
  public:
    // A component that ends in ERROR leaves its session open, and the two keep each other.
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

// All of them at once.
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
    // Far below the wait limit of three seconds that the others run into.
    return report("the other 56", healthy) && started && healthy.longest < 1s;
}

}  // namespace
}  // namespace qoz::bench

int main(int argc, char** argv) {
    const bool mixed = argc > 1 && std::string(argv[1]) == "--misbehave";
    const char* count = argc > (mixed ? 2 : 1) ? argv[mixed ? 2 : 1] : "100000";
    const uint64_t frames = std::strtoull(count, nullptr, 10);
    if (frames < 1000) {
        std::fprintf(stderr, "soak: [--misbehave] [frames in all, 1000 or more]\n");
        return 2;
    }
    qoz::host::setLogSink([](const qoz::host::LogLine&) {});
    const bool good = mixed ? qoz::bench::misbehave(frames) : qoz::bench::soak(frames);
    return good ? 0 : 1;
}
