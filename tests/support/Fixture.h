// SPDX-License-Identifier: Apache-2.0
// A component against the scripted service, and the proof that nothing of it is left afterwards.
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

using android::ConfigParams;
using android::GraphicBuffer;
using android::QOZBufferInfo;
using android::sp;
using android::VppComponent;
using android::VppComponentPeer;

constexpr int32_t kNv12 = host::kNv12Vemo;
constexpr int32_t kRgba = host::kRgba8888;

sp<GraphicBuffer> buffer(uint32_t width, uint32_t height, int32_t format, uint32_t usage = 0x300);

// Every test ends with no more descriptors, threads, buffers, handles, sessions and binder
// references than it began with, and ends.
class ResourceTest : public ::testing::Test {
  protected:
    void SetUp() override;
    void TearDown() override;
    static size_t countThreads();  // of this process

  private:
    std::map<std::string, uint64_t> mBefore;
    Watchdog mWatchdog;
};

// Holds whoever comes by until it is let go.
struct Gate {
    void hold() {
        inside.count_down();
        release.wait();
    }
    std::latch inside{1};
    std::latch release{1};
};

class ComponentTest : public ResourceTest {
  protected:
    void SetUp() override;
    void TearDown() override;

    // As a test begins: no component, a session without a script, nothing said yet.
    void renew();

    // With all diagnostics on, unless `logFlags` says otherwise.
    void make(const char* logFlags = "21");
    void makeEnabled();
    bool enable(bool debug = false) { return vpp->enable("test", &client, debug); }
    void enableAndConfig(uint32_t width, uint32_t height, ConfigParams params);
    VppComponentPeer peer() { return VppComponentPeer(*vpp); }
    ScriptedVpp& session() { return *service->next; }

    int32_t process(std::vector<QOZBufferInfo> packet) { return vpp->process(&packet, nullptr); }
    int32_t processSource(int32_t slot, const sp<GraphicBuffer>& source, int64_t nanoseconds,
                          std::optional<ConfigParams> carried = {});
    int32_t processOutput(int32_t slot, const sp<GraphicBuffer>& output);

    // What the service was given on a port.
    std::vector<Queued> queuedOn(vpp::VppPort port) const;
    Strings lastCalls(size_t count) const;

    // The worker stays at the gate, inside the client's callback for this slot.
    void holdDelivery(int32_t slot, Gate& gate);

    LogCapture log;
    Recorder client;
    std::unique_ptr<ScriptedService> service;
    std::shared_ptr<VppComponent> vpp;
};

}  // namespace qoz::test
