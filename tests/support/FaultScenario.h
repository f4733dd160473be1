// SPDX-License-Identifier: Apache-2.0
// Plays one stream with a fault and records what its client sees.
#pragma once

#include <client/LiveClient.h>

#include <algorithm>
#include <array>
#include <chrono>
#include <optional>
#include <string>
#include <vector>

#include "support/Fixture.h"

namespace qoz::test {

using namespace std::chrono_literals;

constexpr std::chrono::milliseconds kShortWait = VppComponentPeer::kShortWait;
constexpr std::chrono::milliseconds kLate = kShortWait * 3 / 2;  // after the wait has ended

inline std::string nameOf(VppComponent::status state) {
    static constexpr std::array kNames{"UNINIT", "INIT", "IDLE", "ACTIVE", "PENDING", "ERROR"};
    return kNames[static_cast<size_t>(state)];
}

// A client, its component, and the steps of a stream. Each step records unexpected results in
// `seen`. Used by one thread.
class FaultScenario {
  public:
    // `mayLose` is the number of buffers that a flush does not return because of the fault.
    FaultScenario(std::chrono::milliseconds waitLimit, size_t mayLose) : mMayLose(mayLose) {
        client.vpp = std::make_shared<VppComponent>();
        VppComponentPeer(*client.vpp).setWaitLimit(waitLimit);
    }

    // Each of the following steps measures its operations (see `longest`).
    void start(ConfigParams params) {
        bool enabled = false;
        time([&] { enabled = client.enable(); });
        if (!enabled) saw("enable refused, state " + nameOf(client.vpp->state()));
        time([&] { client.vpp->config(64, 48, kRgba, params, true); });
        // config() waits only for the first start of a component; isInputPortEnabled() waits for
        // any start.
        time([&] { client.vpp->isInputPortEnabled(64, 48, kRgba); });
        const auto state = client.vpp->state();
        if (enabled && state != VppComponent::ACTIVE) saw("start leaves " + nameOf(state));
    }
    void frames(int count, uint32_t width, uint32_t height,
                std::optional<ConfigParams> carried = {}) {
        for (int i = 0; i < count; ++i) {
            bool sent = false;
            time([&] { sent = client.send(width, height, mNow += kFrameNs, {}, carried); });
            EXPECT_TRUE(sent) << "no source is returned";
        }
        if (client.ledger().totals().refused > 0) saw("buffers refused");
    }
    void frameAt(int64_t nanoseconds) {
        time([&] { EXPECT_TRUE(client.send(64, 48, nanoseconds)); });
    }
    // Queues another buffer with this slot, of an output or a source, even if it is outstanding.
    void queueOnceMore(int32_t slot) {
        std::vector<android::QOZBufferInfo> packet{{slot, nullptr, nullptr, mNow, {}}};
        const bool isSource = slot >= client::LiveClient::kFirstSource;
        packet[0].buffer = new android::GraphicBuffer(
            isSource ? 64 : client.vpp->expectedOutputWidth(),
            isSource ? 48 : client.vpp->expectedOutputHeight(), isSource ? kRgba : kNv12, 0x333);
        time([&] {
            client.vpp->process(isSource ? &packet : nullptr, isSource ? nullptr : packet.data());
        });
    }
    void drain() {
        bool drained = false;
        time([&] { drained = VppComponentPeer(*client.vpp).drain(); });
        if (!drained) saw("drain fails");
    }
    void flush(bool awaitHome = true) {
        time([&] { client.vpp->flushsync(); });
        const auto state = client.vpp->state();
        if (state == VppComponent::IDLE) {
            if (!awaitHome) return;
            // A return that a fault delays may arrive after the flush.
            eventually([this] { return client.ledger().outstanding() <= mMayLose; });
            flushed = client.ledger();
        } else {
            saw("flush leaves " + nameOf(state));
        }
    }
    void disable() {
        disabling = std::max(disabling, time([&] { client.vpp->disable(); }));
        EXPECT_EQ(client.vpp->state(), VppComponent::UNINIT);
    }

    void saw(const std::string& text) {
        if (std::ranges::find(seen, text) == seen.end()) seen.push_back(text);
    }

    // Plays frames, a new size, a new ratio, a drain, a flush, and frames again. Continues after
    // failures.
    void playOn() {
        frames(4, 64, 48);
        frames(3, 96, 64);
        frames(1, 96, 64, ConfigParams{1, 0, 1, 2});
        frames(3, 96, 64);
        drain();
        flush();
        frames(2, 96, 64);
    }

    // Expects that without faults the component starts, plays, and returns every buffer.
    void expectHealth() {
        seen.clear();
        flushed.reset();
        VppComponentPeer(*client.vpp).setWaitLimit(10s);  // no wait must time out here
        start({1, 0, 1, 0});
        frames(4, 64, 48);
        flush();
        const std::string account = client.account();
        disable();
        EXPECT_EQ(seen, std::vector<std::string>{});
        EXPECT_EQ(account, "") << "of a healthy stream after";
    }

    client::LiveClient client;
    std::vector<std::string> seen;           // in order, without duplicates
    std::chrono::milliseconds longest{0};    // the longest operation
    std::chrono::milliseconds disabling{0};  // the longest disable()
    std::optional<client::Ledger> flushed;   // the ledger after a flush that ended in IDLE

  private:
    // Measures one operation.
    template <typename Act>
    std::chrono::milliseconds time(const Act& act) {
        const auto begin = std::chrono::steady_clock::now();
        act();
        const auto took = std::chrono::duration_cast<std::chrono::milliseconds>(
            std::chrono::steady_clock::now() - begin);
        longest = std::max(longest, took);
        return took;
    }

    static constexpr int64_t kFrameNs = 16000000;
    const size_t mMayLose;
    int64_t mNow = 0;
};

}  // namespace qoz::test
