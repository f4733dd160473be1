// SPDX-License-Identifier: Apache-2.0
#include "client/LiveClient.h"

#include <android/binder_manager.h>

#include <algorithm>
#include <chrono>
#include <vector>

namespace qoz::client {

using android::ConfigParams;
using android::GraphicBuffer;
using android::QOZBufferInfo;
using android::VppComponent;
using android::base::ScopedLockAssertion;

namespace {

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
    mSources.clear();
    mOutputs.clear();
    mLedger = {};
    mNewest = 0;
    mWrong.clear();
    return enabled;
}

bool LiveClient::send(uint32_t width, uint32_t height, int64_t nanoseconds,
                      const std::function<void(uint8_t*)>& paint,
                      std::optional<ConfigParams> carried) {
    if (!waitForSource()) return false;
    if (std::optional<QOZBufferInfo> source = takeSource({width, height})) {
        if (paint) paint(LockedPixels(source->buffer, GraphicBuffer::USAGE_SW_WRITE_OFTEN).data());
        source->timestamp = nanoseconds;
        source->config = carried;
        std::vector<QOZBufferInfo> packet{*source};
        if (vpp->process(&packet, nullptr) != 0) refused(kSourcePort, source->slot);
    }
    queueOutputs();
    return true;
}

bool LiveClient::waitForSource() {
    std::unique_lock lock(mLock);
    const ScopedLockAssertion held(mLock);
    return mReturned.wait_for(lock, kPatience,
                              [this]() REQUIRES(mLock) { return mSources.hasFree(); });
}

// A free slot is there. None without memory for its buffer.
std::optional<QOZBufferInfo> LiveClient::takeSource(Size size) {
    const std::lock_guard lock(mLock);
    mSize = size;
    try {
        const int32_t slot = mSources.take(size);
        mLedger.queue(kSourcePort, slot);
        return QOZBufferInfo{slot, mSources.buffer(slot), nullptr, 0, {}};
    } catch (const SessionFailed&) {
        return std::nullopt;
    }
}

// A buffer that is refused is offered again by the next call.
void LiveClient::queueOutputs(size_t target) {
    // After a start that failed there is no expected size.
    shapeOutputs({vpp->expectedOutputWidth(), vpp->expectedOutputHeight()},
                 std::min(target, mOutputCount));
    for (size_t i = 0; i < mOutputCount; ++i) {
        std::optional<QOZBufferInfo> output = takeOutput(target);
        if (!output) return;
        if (vpp->process(nullptr, &*output) != 0) refused(kOutputPort, output->slot);
    }
}

void LiveClient::shapeOutputs(Size expected, size_t count) {
    const std::lock_guard lock(mLock);
    try {
        mOutputs.reshape(expected.width != 0 ? expected : mSize, count);
    } catch (const SessionFailed&) {  // then with those that there are
    }
}

// None when enough are outstanding, or all of them.
std::optional<QOZBufferInfo> LiveClient::takeOutput(size_t target) {
    const std::lock_guard lock(mLock);
    if (mLedger.outstanding(kOutputPort) >= target) return std::nullopt;
    const std::optional<int32_t> slot = mOutputs.take();
    if (!slot) return std::nullopt;
    mLedger.queue(kOutputPort, *slot);
    return QOZBufferInfo{*slot, mOutputs.buffer(*slot), nullptr, 0, {}};
}

// Unless it has been returned all the same.
void LiveClient::refused(uint32_t port, int32_t slot) {
    const std::lock_guard lock(mLock);
    if (mLedger.refuse(port, slot)) putBack(slot);
}

void LiveClient::putBack(int32_t slot) {
    if (slot >= SourceRing::kFirst) {
        mSources.putBack(slot);
    } else {
        mOutputs.putBack(slot);
    }
}

bool LiveClient::serviceLives() {
    const char* name = "vendor.vuq.hardware.vpp.IVppService/default";
    return ndk::SpAIBinder(AServiceManager_checkService(name)).get() != nullptr;
}

bool LiveClient::waitForTimestamp(uint64_t microseconds) {
    const auto end = Clock::now() + kPatience;
    while (Clock::now() < end) {
        queueOutputs();
        std::unique_lock lock(mLock);
        const ScopedLockAssertion held(mLock);
        if (mReturned.wait_for(lock, std::chrono::milliseconds(20),
                               [&]() REQUIRES(mLock) { return mNewest >= microseconds; })) {
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
    std::string wrong = mWrong;
    for (const auto& [port, slot] : mLedger.missing())
        wrong += bufferName(port, slot) + " was never returned; ";
    return wrong;
}

Ledger LiveClient::ledger() const {
    const std::lock_guard lock(mLock);
    return mLedger;
}

void LiveClient::onBufferDone(uint32_t port, int32_t slot, uint32_t valid, uint64_t timestamp) {
    if (onReturn) onReturn();
    const std::lock_guard lock(mLock);
    using Verdict = Ledger::Verdict;
    const Verdict verdict = mLedger.giveBack(port, slot);
    if (verdict != Verdict::Good) {
        mWrong += bufferName(port, slot) + (verdict == Verdict::Doubled
                                                ? " was returned without being outstanding; "
                                                : " was returned on the wrong port; ");
    }
    if (verdict == Verdict::Doubled) return;
    if (verdict == Verdict::Good && port == kOutputPort && valid != 0) {
        mNewest = std::max(mNewest, timestamp);
        if (onFrame) onFrame(*mOutputs.buffer(slot), timestamp);
    }
    putBack(slot);
    mReturned.notify_all();
}

}  // namespace qoz::client
