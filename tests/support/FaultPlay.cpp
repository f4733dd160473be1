#include "support/FaultPlay.h"

#include <algorithm>
#include <array>

#include "support/Capture.h"
#include "support/Peer.h"

namespace qoz::test {

using android::ConfigParams;
using android::VppComponent;
using android::VppComponentPeer;
using Clock = std::chrono::steady_clock;

namespace {

constexpr int64_t kFrameNs = 16000000;
constexpr int32_t kRgba = 1;

const char* nameOf(VppComponent::status state) {
    static constexpr std::array kNames{"UNINIT", "INIT", "IDLE", "ACTIVE", "PENDING", "ERROR"};
    return kNames[static_cast<size_t>(state)];
}

}  // namespace

FaultPlay::FaultPlay(std::chrono::milliseconds waitLimit, size_t mayLose) : mMayLose(mayLose) {
    client.vpp = std::make_shared<VppComponent>();
    VppComponentPeer(*client.vpp).setWaitLimit(waitLimit);
}

template <typename Act>
std::chrono::milliseconds FaultPlay::time(const Act& act) {
    const auto begin = Clock::now();
    act();
    const auto took = std::chrono::duration_cast<std::chrono::milliseconds>(Clock::now() - begin);
    longest = std::max(longest, took);
    return took;
}

void FaultPlay::saw(const std::string& text) {
    if (std::ranges::find(seen, text) == seen.end()) seen.push_back(text);
}

void FaultPlay::start(ConfigParams params) {
    bool enabled = false;
    time([&] { enabled = client.enable(); });
    if (!enabled) saw(std::string("enable refused, state ") + nameOf(client.vpp->state()));
    time([&] { client.vpp->config(64, 48, kRgba, params, true); });
    // A component that has started before does not wait in config(); the look at the port does.
    time([&] { client.vpp->isInputPortEnabled(64, 48, kRgba); });
    const auto state = client.vpp->state();
    if (enabled && state != VppComponent::ACTIVE) saw(std::string("start leaves ") + nameOf(state));
}

void FaultPlay::frames(int count, uint32_t width, uint32_t height,
                       std::optional<ConfigParams> carried) {
    for (int i = 0; i < count; ++i) {
        bool sent = false;
        time([&] { sent = client.send(width, height, mNow += kFrameNs, {}, carried); });
        EXPECT_TRUE(sent) << "no source comes home";
    }
    if (client.ledger().totals().refused > 0) saw("buffers refused");
}

void FaultPlay::frameAt(int64_t nanoseconds, uint32_t width, uint32_t height) {
    time([&] { EXPECT_TRUE(client.send(width, height, nanoseconds)); });
}

void FaultPlay::lendOnceMore(int32_t slot) {
    std::vector<android::QOZBufferInfo> packet{{slot, nullptr, nullptr, mNow, {}}};
    const bool isSource = slot >= LiveClient::kFirstSource;
    packet[0].buffer = new android::GraphicBuffer(
        isSource ? 64 : client.vpp->expectedOutputWidth(),
        isSource ? 48 : client.vpp->expectedOutputHeight(), isSource ? kRgba : 0x7FA30C06, 0x333);
    time([&] {
        client.vpp->process(isSource ? &packet : nullptr, isSource ? nullptr : packet.data());
    });
}

void FaultPlay::drain() {
    bool drained = false;
    time([&] { drained = VppComponentPeer(*client.vpp).drain(); });
    if (!drained) saw("drain fails");
}

void FaultPlay::flush(bool awaitHome) {
    time([&] { client.vpp->flushsync(); });
    const auto state = client.vpp->state();
    if (state == VppComponent::IDLE) {
        if (!awaitHome) return;
        // A return that is late on purpose comes after the flush.
        eventually([this] { return client.ledger().outstanding() <= mMayLose; });
        flushed = client.ledger();
    } else {
        saw(std::string("flush leaves ") + nameOf(state));
    }
}

void FaultPlay::disable() {
    disabling = std::max(disabling, time([&] { client.disable(); }));
    EXPECT_EQ(client.vpp->state(), VppComponent::UNINIT);
}

void FaultPlay::playOn() {
    frames(4, 64, 48);
    frames(3, 96, 64);
    frames(1, 96, 64, ConfigParams{1, 0, 1, 2});
    frames(3, 96, 64);
    drain();
    flush();
    frames(2, 96, 64);
}

void FaultPlay::expectHealth() {
    seen.clear();
    flushed.reset();
    VppComponentPeer(*client.vpp).setWaitLimit(10s);  // nothing is to run out of time here
    start({1, 0, 1, 0});
    frames(4, 64, 48);
    flush();
    const std::string account = client.account();
    disable();
    EXPECT_EQ(seen, std::vector<std::string>{});
    EXPECT_EQ(account, "") << "of a healthy stream after";
}

}  // namespace qoz::test
