// SPDX-License-Identifier: Apache-2.0
// Tests that the state dump is correct at any moment and never waits. A test that blocks another
// thread releases it only after the dump, so that a dump that waits for that thread would hang.
#include <client/LiveClient.h>
#include <fcntl.h>
#include <sys/mman.h>
#include <unistd.h>

#include <atomic>
#include <thread>

#include "pipeline/Cookie.h"
#include "support/Fixture.h"

namespace qoz::test {
namespace {

// Returns the state dump of a component.
std::string dumped(const VppComponent& component) {
    const int fd = memfd_create("dump", MFD_CLOEXEC);
    component.dump(fd);
    std::string text(4096, '\0');
    const ssize_t size = pread(fd, text.data(), text.size(), 0);
    close(fd);
    text.resize(size > 0 ? static_cast<size_t>(size) : 0);
    return text;
}

class Dump : public ComponentTest {
  protected:
    void expectLines(const Strings& lines) {
        const std::string text = dumped(*vpp);
        for (const std::string& line : lines)
            EXPECT_NE(text.find(line + '\n'), std::string::npos) << line << "\nin\n" << text;
    }

    // Checks the dump while the service does not return from this call.
    void whileCallHangs(const std::string& call, const std::function<void()>& work,
                        const Strings& lines) {
        SCOPED_TRACE(call);
        Gate gate;
        session().onCall = [&](const std::string& made) {
            if (made == call) gate.hold();
        };
        std::thread caller(work);
        gate.inside.wait();
        expectLines(lines);
        gate.release.count_down();
        caller.join();
        session().onCall = nullptr;
    }
};

TEST_F(Dump, TellsOfTheStreamAndItsBuffers) {
    make();
    expectLines({"  state: UNINIT", "  worker: none, posted command none"});
    ASSERT_TRUE(enable());
    vpp->config(64, 48, kRgba, {1, 0, 1, 2}, true);
    expectLines({"  held back: 1"});  // the place that makes the first source be returned late
    ASSERT_EQ(processSource(7, buffer(64, 48, kRgba), 1000), 0);
    ASSERT_EQ(processSource(8, buffer(64, 48, kRgba), 2'000'000), 0);
    session().returnInput(android::cookie::forInput(7, true), 1);
    for (int32_t slot : {3, 4})
        ASSERT_EQ(processOutput(slot, buffer(128, 96, kNv12)), 0);
    session().returnOutput(android::cookie::forOutput(3), 1, 100);
    ASSERT_TRUE(client.waitFor(2));
    EXPECT_EQ(dumped(*vpp).find("VppComponent [test](0x"), 0);
    expectLines(
        {"  state: ACTIVE",
         "  input: 64x48, format 0x1, 2x frame rate, motion vectors on, half-size copies off",
         "  output: 128x96, 2 buffers a frame, last at 1 us", "  in the vpp: 1 input, 1 output",
         "  held back: 1", "  NV12 pool: 2 entries, 1 free",
         "  side-buffer pool: 1 entries, 0 free", "  worker: running, posted command none",
         "  awaited: nothing"});
    vpp->dump(-1);  // an invalid descriptor must do no harm
}

TEST_F(Dump, WaitsNeitherForTheClientNorForTheService) {
    enableAndConfig(64, 64, {1, 0, 1, 0});
    Gate gate;
    holdDelivery(0, gate);
    session().returnOutput(android::cookie::forOutput(0), 1, 1);
    gate.inside.wait();
    session().returnOutput(android::cookie::forOutput(1), 2, 1);
    expectLines({"  delivery: 1 waiting, the client has slot 0",
                 "  worker: running, posted command none, a delivery"});
    gate.release.count_down();
    ASSERT_TRUE(client.waitFor(2));

    whileCallHangs("queueBuf1", [this] { processOutput(5, buffer(64, 64, kNv12)); },
                   {"  in the vpp: 0 input, 1 output", "  state: ACTIVE"});
    whileCallHangs(
        "flush0", [this] { vpp->flushsync(); },
        {"  state: PENDING", "  awaited: flush",
         "  answers: flush input not done, output not done; reconfigure not done; drain not done"});

    // The service does not return the next two buffers, and does not answer the flush on one port.
    ASSERT_EQ(processOutput(5, buffer(64, 64, kNv12)), 0);
    session().silent = {"flush1"};
    std::thread flusher([this] { vpp->flushsync(); });
    EXPECT_TRUE(eventually([this] {
        return dumped(*vpp).find("flush input done, output not done") != std::string::npos;
    }));
    expectLines({"  state: PENDING", "  awaited: flush"});
    session().send([](vpp::IVppCallbacks& to, vpp::VppError* r) { to.eventFlushDone({1}, r); });
    flusher.join();
    expectLines({"  state: IDLE", "  awaited: nothing"});
}

TEST_F(Dump, AReaderThatHasGoneEndsTheTextAndNothingElse) {
    make();
    int ends[2] = {-1, -1};
    ASSERT_EQ(pipe2(ends, O_CLOEXEC), 0);
    close(ends[0]);
    vpp->dump(ends[1]);
    close(ends[1]);
    expectLines({"  state: UNINIT"});
}

// Another thread makes dumps and calls the getters all the time, so that a sanitizer can find
// races.
TEST_F(ResourceTest, DumpsWhileAStreamLivesAndChanges) {
    const LogCapture log;
    const host::VppService service;
    client::LiveClient client;
    ASSERT_TRUE(client.start(96, 64, {1, 0, 1, 0}));
    std::atomic<bool> over{false};
    std::thread watcher([&over, component = client.vpp] {
        while (!over) {
            EXPECT_NE(dumped(*component).find("  awaited: "), std::string::npos);
            EXPECT_EQ(component->calculateOutBufferReqsPerFrame({1, 0, 3, 0}), 5);
        }
    });
    int64_t now = 0;
    for (uint32_t round = 0; round < 12; ++round) {
        const ConfigParams params{1, 0, round % 4, round % 3};
        EXPECT_TRUE(client.send(96, round % 5 == 0 ? 64 : 48, now += 16000000, {}, params));
        if (round == 8) client.vpp->config(96, 48, kRgba, params, false);
    }
    client.stop();
    EXPECT_TRUE(client.enable());
    client.stop();
    over = true;
    watcher.join();
    EXPECT_EQ(client.account(), "");
}

}  // namespace
}  // namespace qoz::test
