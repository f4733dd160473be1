// SPDX-License-Identifier: Apache-2.0
// Fixtures: a component with a scripted service, and a check that every test releases its
// resources.
#pragma once

#include <gtest/gtest.h>
#include <host/platform/BufferLayout.h>
#include <qoz/VppComponent.h>

#include <latch>
#include <map>
#include <memory>
#include <string>
#include <vector>

#include "support/Capture.h"
#include "support/Peer.h"
#include "support/ScriptedService.h"
#include "support/Watchdog.h"

namespace qoz::test {

using Strings = std::vector<std::string>;

// The names of the side buffers of a frame with motion vectors, and of the first frame, which has
// no motion vectors.
inline const Strings kAllThree{"vpp.metabuf.mv.fw", "vpp.metabuf.mv.bw", "vpp.metabuf.scale.0p5"};
inline const Strings kHalfOnly{"vpp.metabuf.scale.0p5"};

using android::ConfigParams;
using android::GraphicBuffer;
using android::QOZBufferInfo;
using android::sp;
using android::VppComponent;
using android::VppComponentPeer;

constexpr int32_t kNv12 = host::kNv12Vemo;
constexpr int32_t kRgba = host::kRgba8888;

sp<GraphicBuffer> buffer(uint32_t width, uint32_t height, int32_t format, uint32_t usage = 0x300);

// Checks that a test ends with no more descriptors, threads, buffers, handles, sessions and binder
// references than it began with, and that it has queued no memory that a session held. Aborts a
// test that hangs.
class ResourceTest : public ::testing::Test {
  protected:
    void SetUp() override;
    void TearDown() override;
    static size_t countThreads();  // of this process
    // Returns how often the test has queued memory that a session held, and forgets it.
    uint64_t takeQueuedTwice();

  private:
    std::map<std::string, uint64_t> mBefore;
    uint64_t mQueuedTwice = 0;  // of the counter: what is known
    Watchdog mWatchdog;
};

// Blocks a thread in hold() until the test counts `release` down. `inside` tells the test that the
// thread has arrived.
struct Gate {
    void hold() {
        inside.count_down();
        release.wait();
    }
    std::latch inside{1};
    std::latch release{1};
};

// A component with a recording client and a scripted service.
class ComponentTest : public ResourceTest {
  protected:
    void SetUp() override;
    void TearDown() override;

    // Restores the state at the beginning of a test: no component, a session without a script, and
    // nothing recorded.
    void renew();

    // Creates the component. `logFlags` is the log property; the default enables all diagnostics.
    void make(const char* logFlags = "21");
    void makeEnabled();
    bool enable(bool debug = false) { return vpp->enable("test", &client, debug); }
    void enableAndConfig(uint32_t width, uint32_t height, ConfigParams params);
    // Like enableAndConfig(), for a small stream without side buffers.
    void startPlain(uint32_t factor = 1, uint32_t upscale = 0);
    static constexpr uint32_t kW = 64;
    static constexpr uint32_t kH = 48;
    static constexpr ConfigParams kTwice{1, 0, 1, 0};  // one interpolated frame for each source
    static sp<GraphicBuffer> frame(uint32_t width = kW, uint32_t height = kH,
                                   int32_t format = kRgba) {
        return buffer(width, height, format);
    }
    static sp<GraphicBuffer> nv12() { return buffer(kW, kH, kNv12); }

    VppComponentPeer peer() { return VppComponentPeer(*vpp); }
    ScriptedVpp& session() { return *service->next; }

    int32_t process(std::vector<QOZBufferInfo> packet) { return vpp->process(&packet, nullptr); }
    int32_t processSource(int32_t slot, const sp<GraphicBuffer>& source, int64_t nanoseconds,
                          std::optional<ConfigParams> carried = {});
    int32_t processOutput(int32_t slot, const sp<GraphicBuffer>& output);

    // Returns the records that were queued on a port.
    std::vector<Queued> queuedOn(vpp::VppPort port) const;
    std::vector<Queued> inputs() const { return queuedOn(vpp::VppPort::INPUT); }
    Strings lastCalls(size_t count) const;

    // Blocks the output worker at the gate, in the client's callback for this slot.
    void holdDelivery(int32_t slot, Gate& gate);

    LogCapture log;
    Recorder client;
    std::unique_ptr<ScriptedService> service;
    std::shared_ptr<VppComponent> vpp;
};

}  // namespace qoz::test
