// SPDX-License-Identifier: Apache-2.0
// Makes the n-th allocation of a resource fail, once or from then on, for every n until none fails
// any more. The resources are memory, native handles, graphic buffers, descriptors and threads. A
// failure may cost frames, but must not lose a buffer or cause a hang.
#include <client/LiveClient.h>
#include <host/vppservice/NullSession.h>
#include <host/vppservice/SingleSessionService.h>
#include <sys/resource.h>

#include <array>
#include <atomic>
#include <cstdlib>
#include <fstream>
#include <new>
#include <semaphore>
#include <thread>

#include "support/FailThread.h"
#include "support/Fixture.h"
#include "support/VppSessionClient.h"

namespace {

// While tArmed is set, allocations on this thread count tCountdown down, and those from 0 on fail,
// or only the one at 0 if tOnce is set.
thread_local bool tArmed = false;
thread_local int64_t tCountdown = 0;
thread_local bool tOnce = true;

bool failsNow() {
    if (!tArmed) return false;
    --tCountdown;
    return tOnce ? tCountdown == 0 : tCountdown <= 0;
}

}  // namespace

void* operator new(size_t size) {
    if (failsNow()) throw std::bad_alloc();
    if (void* memory = malloc(size)) return memory;
    throw std::bad_alloc();
}
// These are not inlined, because the compiler would otherwise warn that new does not match free()
// and that malloc() does not match delete.
__attribute__((noinline)) void* operator new(size_t size, const std::nothrow_t&) noexcept {
    return failsNow() ? nullptr : malloc(size);
}
__attribute__((noinline)) void operator delete(void* memory) noexcept {
    free(memory);
}
__attribute__((noinline)) void operator delete(void* memory, size_t) noexcept {
    free(memory);
}

namespace qoz::test {
namespace {

using vpp::VppError;

constexpr uint32_t kW = 64;
constexpr uint32_t kH = 48;
constexpr int kFrames = 20;
constexpr size_t kSlots = 8;

// A client that counts returned buffers without allocating memory.
class CountingClient final : public android::IQOZCallback {
  public:
    void onBufferDone(uint32_t port, int32_t slot, uint32_t, uint64_t) override {
        const size_t index = static_cast<size_t>(slot) + (port == 0 ? kSlots : 0);
        if (index < returned.size()) ++returned[index];
    }
    void onConfigChanged(std::set<uint32_t>) override {}

    std::array<std::atomic<int>, 2 * kSlots> returned{};  // sources, then outputs
};

// A session that stores its buffers without allocating memory, and returns all of them when the
// test calls giveBackAll().
class HoldingVpp : public host::NullSession {
  public:
    HoldingVpp() : mAnswerer([this] { answer(); }) {}
    ~HoldingVpp() override {
        mEnding = true;
        mFlushed.release();
        mAnswerer.join();
    }

    std::atomic<int32_t> factor{0};  // interpolation factor of the last segment

    void giveBackAll() {
        // A binder would also hold the callback object during the calls. The session may be
        // terminated meanwhile.
        const auto object = callbacks;
        VppError result = VppError::VPP_OK;
        for (size_t i = 0; i < mHeld; ++i) {
            (void)(mPorts[i] == Port::INPUT ? object->inputBufferDone(mBuffers[i], &result)
                                            : object->outputBufferDone(mBuffers[i], &result));
        }
        mHeld = 0;
    }

    Status setCtrlFrc(const std::vector<vpp::VppCtrlFrcSegment>& list, Error*) override {
        factor = list.back().interpFactor;
        return Status::ok();
    }
    Status flush(Port port, Error*) override {
        if (port == Port::OUTPUT) mFlushed.release();
        return Status::ok();
    }
    Status queueBuf(Port port, const vpp::VppBuffer& buffer, Error*) override {
        mPorts[mHeld] = port;
        mBuffers[mHeld].cookie = buffer.cookie;
        mBuffers[mHeld].timestamp = buffer.timestamp;
        ++mHeld;
        return Status::ok();
    }
    Status reconfigure(const PortParam&, const PortParam&, Error* result) override {
        *result = Error::VPP_ERR_STATE;
        return Status::ok();
    }

  private:
    void answer() {
        for (;;) {
            mFlushed.acquire();
            if (mEnding) return;
            const auto object = callbacks;
            giveBackAll();
            VppError result = VppError::VPP_OK;
            for (const int32_t port : {0, 1}) {
                vpp::FlushDone done;
                done.port = port;
                (void)object->eventFlushDone(done, &result);
            }
        }
    }

    std::array<Port, 64> mPorts{};
    std::array<vpp::VppBuffer, 64> mBuffers;
    size_t mHeld = 0;
    std::atomic<bool> mEnding{false};
    std::counting_semaphore<> mFlushed{0};
    std::thread mAnswerer;
};

// Plays streams in which allocations fail, and checks that every buffer is returned.
class Sweep : public ResourceTest {
  protected:
    // Plays one stream of 20 frames. The faults are armed only during calls to the component, so
    // that the test's own allocations succeed. Returns "" if every taken buffer was returned once.
    template <typename Arm, typename Disarm>
    static std::string play(Arm arm, Disarm disarm) {
        const auto session = ndk::SharedRefBase::make<HoldingVpp>();
        const host::SingleSessionService service(session);
        CountingClient client;
        auto component = std::make_shared<VppComponent>();
        std::array<sp<GraphicBuffer>, kSlots> sources, outputs;
        for (auto& b : sources)
            b = buffer(kW, kH, kRgba);
        for (auto& b : outputs)
            b = buffer(kW, kH, kNv12);
        std::array<int, 2 * kSlots> taken{};
        const auto armed = [&](auto operation) {
            arm();
            operation();
            disarm();
        };
        bool enabled = false;
        armed([&] { enabled = component->enable("sweep", &client, false); });
        armed([&] { component->config(kW, kH, kRgba, {1, 0, 1, 0}, true); });
        for (int n = 0; enabled && n < kFrames; ++n) {
            const size_t slot = static_cast<size_t>(n) % kSlots;
            QOZBufferInfo output{static_cast<int32_t>(slot), outputs[slot], nullptr, 0, {}};
            std::vector<QOZBufferInfo> packet{
                {static_cast<int32_t>(slot), sources[slot], nullptr, n * 1000000, {}}};
            if (n == 12) packet[0].config = kCarried;
            armed([&] { taken[kSlots + slot] += component->process(nullptr, &output) == 0; });
            armed([&] { taken[slot] += component->process(&packet, nullptr) == 0; });
            armed([&] { session->giveBackAll(); });
        }
        std::string wrong;
        if (component->expectedOutputWidth() == 2 * kW && component->outBufReqsPerFrame() != 4)
            wrong += " only some of the settings are applied";
        if (enabled) wrong += carryAgain(*component, *session, sources[0]);
        armed([&] { component->flushsync(); });
        armed([&] { component->disable(); });
        for (size_t i = 0; i < taken.size(); ++i) {
            if (taken[i] != client.returned[i]) wrong += " slot " + std::to_string(i);
        }
        component.reset();
        (void)session->terminateSession();
        return wrong;
    }

    // Sends the settings of the earlier frame again, without failures. They must then be applied,
    // even if an earlier failure had stored them without applying them.
    static std::string carryAgain(VppComponent& component, HoldingVpp& session,
                                  const sp<GraphicBuffer>& source) {
        std::vector<QOZBufferInfo> packet{{63, source, nullptr, kFrames * 1000000, kCarried}};
        if (component.process(&packet, nullptr) != 0) return "";  // the session was never started
        session.giveBackAll();
        const bool inForce = component.outBufReqsPerFrame() == 4 && session.factor == 3;
        return inForce ? "" : " settings are stored but not applied";
    }

    static constexpr ConfigParams kCarried{1, 0, 3, 2};  // another factor and another ratio

    LogCapture log;  // keeps the many expected messages from being printed
};

TEST_F(Sweep, Memory) {
    EXPECT_EQ(play([] {}, [] {}), "") << "with nothing failing";
    for (const bool once : {true, false}) {
        bool hit = true;
        for (int64_t n = 1; hit; ++n) {
            tOnce = once;
            tCountdown = n;
            EXPECT_EQ(play([] { tArmed = true; }, [] { tArmed = false; }), "")
                << (once ? "allocation " : "from allocation ") << n;
            hit = tCountdown <= 0;
            ASSERT_LT(n, 5000) << "the run does not end";
        }
    }
}

TEST_F(Sweep, HandlesAndGraphicBuffers) {
    for (const char* operation : {"native_handle_create", "allocate"}) {
        for (const uint64_t count : {1, 0}) {
            bool hit = true;
            for (uint64_t n = 1; hit; ++n) {
                host::clearFaults();
                // The first sixteen calls are for the client's own buffers, each with one handle.
                host::armFault({.operation = operation, .nth = n + 16, .count = count});
                EXPECT_EQ(play([] {}, [] {}), "") << operation << " " << n;
                hit = host::faultsFired() > 0;
            }
        }
    }
}

TEST_F(Sweep, Descriptors) {
    rlimit before{};
    getrlimit(RLIMIT_NOFILE, &before);
    const auto open = static_cast<rlim_t>(host::openDescriptors());
    // The limit applies to descriptor numbers, of which the client's buffers use 16. The loop
    // leaves from none free to more than a run uses.
    for (rlim_t spare = 0; spare < 40; ++spare) {
        rlimit limit = before;
        limit.rlim_cur = open + 16 + spare;
        const auto arm = [&] { setrlimit(RLIMIT_NOFILE, &limit); };
        EXPECT_EQ(play(arm, [&] { setrlimit(RLIMIT_NOFILE, &before); }), "") << spare << " spare";
    }
}

// The simulated service allocates on its client's thread. An operation that fails there must have
// no effect, because the client takes it as refused.
class ServiceSweep : public VppServiceTest {
  protected:
    // Repeats an operation with each of its allocations failing in turn, until none fails.
    // `afterFailure` is called after each failure.
    template <typename Operation, typename Check>
    static void sweep(const Operation& operation, const Check& afterFailure) {
        tOnce = true;
        int failures = 0;
        for (bool fails = true; fails;) {
            tCountdown = failures + 1;
            fails = throwsWhileArmed(operation);
            if (!fails) break;
            ++failures;
            afterFailure();
            ASSERT_LT(failures, 1000) << "the operation never succeeds";
        }
        EXPECT_GT(failures, 0);
    }

    static size_t mappedBuffers() {
        std::ifstream maps("/proc/self/maps");
        size_t count = 0;
        for (std::string line; std::getline(maps, line);)
            count += line.find("/memfd:graphic-buffer") != std::string::npos ? 1 : 0;
        return count;
    }

  private:
    template <typename Operation>
    static bool throwsWhileArmed(const Operation& operation) {
        tArmed = true;
        try {
            operation();
        } catch (const std::bad_alloc&) {
            tArmed = false;
            return true;
        }
        tArmed = false;
        return false;
    }
};

TEST_F(ServiceSweep, ASourceThatFailedIsNoReference) {
    openAt(1);
    EXPECT_EQ(queueOutput(0), 0);
    const auto pixels = frame(kSmall);
    std::vector<VppBuffer> records;  // made before the failures, with a timestamp each
    for (uint64_t n = 1; n <= 200; ++n)
        records.push_back(record(pixels, 1, n * 1000));
    size_t next = 0;
    const size_t mapped = mappedBuffers();
    sweep([&] { EXPECT_EQ(queue(VppPort::INPUT, records.at(next++)), 0); },
          [&] { EXPECT_EQ(mappedBuffers(), mapped); });
    ASSERT_TRUE(mRecorder->await("output 0 at " + std::to_string(next * 1000)));
}

TEST_F(ServiceSweep, ACommandThatFailedLosesNoBuffer) {
    for (const bool flushes : {true, false}) {
        openAt(1);
        feed(0, 3);
        EXPECT_EQ(queueOutput(0), 0);
        ASSERT_TRUE(mRecorder->await("output 0 at 1000"));
        const vpp::VppPortParam larger = port({96, 64});
        sweep(
            [&] {
                EXPECT_EQ(flushes ? flush(VppPort::INPUT) : ask(&IVpp::reconfigure, larger, larger),
                          0);
            },
            [&] { EXPECT_EQ(source(9, 9000), 0) << "the size has changed"; });
        ASSERT_TRUE(mRecorder->await(flushes ? "flush 0" : "reconfig 0"));
        for (const char* id : {"input 0 ", "input 1 ", "input 2 ", "input 9 "})
            EXPECT_TRUE(mRecorder->await(id)) << id;
        EXPECT_EQ(ask(&IVpp::close), 0);
    }
}

// This covers the threads of the component and of the simulated service.
TEST_F(Sweep, Threads) {
    for (const bool once : {true, false}) {
        bool hit = true;
        for (int n = 1; hit; ++n) {
            SCOPED_TRACE(testing::Message() << (once ? "thread " : "from thread ") << n);
            Watchdog::feed();
            const host::VppService service;
            client::LiveClient client;
            client.vpp = std::make_shared<VppComponent>();
            VppComponentPeer(*client.vpp).setWaitLimit(VppComponentPeer::kShortWait);
            failThreads(n, once);
            const bool started = client.start(kW, kH, {1, 0, 1, 0});
            for (int frame = 0; started && frame < 3; ++frame)
                EXPECT_TRUE(client.send(kW, kH, frame * 1000000));
            client.stop();
            failThreads(0);
            hit = hasThreadFailed();
            EXPECT_EQ(client.account(), "");
            ASSERT_TRUE(client.start(kW, kH, {1, 0, 1, 0})) << "threads again";
            client.stop();
            EXPECT_EQ(client.account(), "");
            ASSERT_LT(n, 100) << "the run does not end";
        }
    }
}

}  // namespace
}  // namespace qoz::test
