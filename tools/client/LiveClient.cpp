// SPDX-License-Identifier: Apache-2.0
#include "client/LiveClient.h"

#include <android/binder_manager.h>

#include <algorithm>
#include <chrono>

#include "client/BufferRing.h"

namespace qoz::client {

using android::ConfigParams;
using android::GraphicBuffer;
using android::QOZBufferInfo;
using android::VppComponent;

namespace {

constexpr uint32_t kUsage = 0x333;                    // read and written by anyone
constexpr auto kPatience = std::chrono::seconds(20);  // with what is expected soon

}  // namespace

bool LiveClient::start(uint32_t width, uint32_t height, ConfigParams params) {
    if (!enable()) return false;
    vpp->config(width, height, kRgba, params, true);
    // A component that has started before does not wait in config(); the look at the port does.
    return vpp->isInputPortEnabled(width, height, kRgba);
}

bool LiveClient::enable() {
    if (vpp == nullptr) vpp = std::make_shared<VppComponent>();
    const bool enabled = vpp->enable("live", this, false);
    // Until then a previous session may still have returned what it had.
    const std::lock_guard lock(mLock);
    mLedger = {};
    mWrong.clear();
    return enabled;
}

bool LiveClient::send(uint32_t width, uint32_t height, int64_t nanoseconds,
                      const std::function<void(uint8_t*)>& paint,
                      std::optional<ConfigParams> carried) {
    const int32_t slot = takeSource({width, height});
    if (slot < 0) return false;
    BufferRef source = mSources[static_cast<size_t>(slot - kFirstSource)];
    if (paint) {
        void* pixels = nullptr;
        if (source->lock(GraphicBuffer::USAGE_SW_WRITE_OFTEN, &pixels) == android::OK) {
            paint(static_cast<uint8_t*>(pixels));
            source->unlock();
        }
    }
    std::vector<QOZBufferInfo> packet{{slot, source, nullptr, nanoseconds, carried}};
    if (vpp->process(&packet, nullptr) != 0) {
        const std::lock_guard lock(mLock);
        mLedger.refuse(kSourcePort, slot);
    }
    queueOutputs();
    return true;
}

bool LiveClient::waitForSource() {
    std::unique_lock lock(mLock);
    return mReturned.wait_for(
        lock, kPatience, [this] { return mLedger.outstanding(kSourcePort) < mSources.size(); });
}

// -1 when no source is returned in time.
int32_t LiveClient::takeSource(Size size) {
    if (!waitForSource()) return -1;
    const std::lock_guard lock(mLock);
    int32_t free = kFirstSource;
    while (!mLedger.queue(kSourcePort, free))
        ++free;
    auto& buffer = mSources[static_cast<size_t>(free - kFirstSource)];
    buffer = resized(buffer, size, kRgba, kUsage);
    mSize = size;
    return free;
}

void LiveClient::queueOutputs(size_t target) {
    for (size_t i = 0; i < mOutputs.size(); ++i) {
        const auto slot = static_cast<int32_t>(i);
        QOZBufferInfo output{slot, takeOutput(i, target), nullptr, 0, {}};
        if (output.buffer == nullptr || vpp->process(nullptr, &output) == 0) continue;
        const std::lock_guard lock(mLock);
        mLedger.refuse(kOutputPort, slot);
    }
}

// Null when enough are outstanding, or this one is.
BufferRef LiveClient::takeOutput(size_t slot, size_t target) {
    const std::lock_guard lock(mLock);
    if (mLedger.outstanding(kOutputPort) >= target) return {};
    if (!mLedger.queue(kOutputPort, static_cast<int32_t>(slot))) return {};
    const Size expected{vpp->expectedOutputWidth(), vpp->expectedOutputHeight()};
    BufferRef& buffer = mOutputs[slot];
    // After a start that failed there is no expected size: as large as the source.
    buffer = resized(buffer, expected.width != 0 ? expected : mSize, kNv12Vemo, kUsage);
    return buffer;
}

bool LiveClient::serviceLives() {
    const char* name = "vendor.vuq.hardware.vpp.IVppService/default";
    return ndk::SpAIBinder(AServiceManager_checkService(name)).get() != nullptr;
}

bool LiveClient::waitForTimestamp(uint64_t microseconds) {
    const auto end = std::chrono::steady_clock::now() + kPatience;
    while (std::chrono::steady_clock::now() < end) {
        queueOutputs();
        std::unique_lock lock(mLock);
        if (mReturned.wait_for(lock, std::chrono::milliseconds(20),
                               [&] { return mNewest >= microseconds; })) {
            return true;
        }
    }
    return false;
}

void LiveClient::stop() {
    vpp->flushsync();
    vpp->disable();
}

std::string LiveClient::account() const {
    const std::lock_guard lock(mLock);
    std::string wrong;
    for (const auto& text : mWrong)
        wrong += text + "; ";
    for (const auto& [port, slot] : mLedger.missing())
        wrong += bufferName(port, slot) + " was never returned; ";
    return wrong;
}

Ledger LiveClient::ledger() const {
    const std::lock_guard lock(mLock);
    return mLedger;
}

size_t LiveClient::doubled() const {
    const std::lock_guard lock(mLock);
    return mLedger.totals().doubled;
}

void LiveClient::onBufferDone(uint32_t port, int32_t slot, uint32_t valid, uint64_t timestamp) {
    if (onReturn) onReturn();
    const std::lock_guard lock(mLock);
    using Verdict = Ledger::Verdict;
    switch (mLedger.giveBack(port, slot)) {
        case Verdict::Good:
            break;
        case Verdict::Doubled:
            mWrong.push_back(bufferName(port, slot) + " was returned without being outstanding");
            return;
        case Verdict::WrongPort:
            mWrong.push_back(bufferName(port, slot) + " was returned on the wrong port");
            return;
    }
    if (port == kOutputPort && valid != 0) {
        mNewest = std::max(mNewest, timestamp);
        if (onFrame) onFrame(*mOutputs[static_cast<size_t>(slot)], timestamp);
    }
    mReturned.notify_all();
}

}  // namespace qoz::client
