// SPDX-License-Identifier: Apache-2.0
#include "client/LiveClient.h"

#include <android/binder_manager.h>

#include <algorithm>
#include <exception>
#include <vector>

namespace qoz::client {
namespace {

using android::QOZBufferInfo;

// Output buffers that are returned without a frame are queued again only after this time without
// returns: queueing them at once would be an endless loop with a service that refuses all of them.
constexpr std::chrono::milliseconds kRetry{50};

// Output buffers beyond the outstanding ones: one that onFrame reads, and one that has been
// returned but not yet handled.
constexpr size_t kSpareOutputs = 2;

}  // namespace

bool LiveClient::start(uint32_t width, uint32_t height, android::ConfigParams params) {
    if (!enable()) return false;
    vpp->config(width, height, kRgba, params, true);
    // From the second session on, config() does not wait for the start. isInputPortEnabled() does.
    return vpp->isInputPortEnabled(width, height, kRgba);
}

bool LiveClient::enable(bool diagnostics) {
    if (vpp == nullptr) vpp = std::make_shared<android::VppComponent>();
    const bool enabled = vpp->enable(mName, this, diagnostics);
    // The ledger is emptied only now, because the previous session may have returned buffers during
    // enable().
    clear();
    mSources.clear();
    mOutputs.clear();
    mNewest = 0;
    return enabled;
}

bool LiveClient::send(uint32_t width, uint32_t height, int64_t nanoseconds,
                      const std::function<void(uint8_t*)>& paint,
                      std::optional<android::ConfigParams> carried) {
    if (!waitForSource()) return false;
    try {
        const int32_t slot = takeSource({width, height});
        if (paint) paintSource(slot, paint);
        submit(slot, nanoseconds, carried);
    } catch (const SessionFailed&) {  // the frame cannot be allocated or painted; it is skipped
    }
    queueOutputs();
    return true;
}

void LiveClient::paintSource(int32_t slot, const std::function<void(uint8_t*)>& paint) {
    try {
        paint(LockedPixels(source(slot), android::GraphicBuffer::USAGE_SW_WRITE_OFTEN).data());
    } catch (...) {
        mSources.putBack(slot);
        throw;
    }
}

int32_t LiveClient::takeSource(Size size) {
    mSize = size;
    return mSources.take(size);
}

bool LiveClient::submit(int32_t slot, int64_t nanoseconds,
                        const std::optional<android::ConfigParams>& carried) {
    std::vector<QOZBufferInfo> packet{
        {slot, mSources.buffer(slot), android::Fence::NO_FENCE, nanoseconds, carried}};
    queue(kSourcePort, slot);
    const qoz::host::TraceSlice slice("process");
    mTrace.sent(slot, static_cast<uint64_t>(nanoseconds / 1000));
    if (vpp->process(&packet, nullptr) == 0) return true;
    // If the component has returned the buffer although it refused it, handle() makes it free.
    if (refuse(kSourcePort, slot)) mSources.putBack(slot);
    return false;
}

void LiveClient::shapeOutputs(size_t target) {
    const Size expected{vpp->expectedOutputWidth(), vpp->expectedOutputHeight()};
    // The expected size is 0 if the start failed.
    mOutputs.reshape(expected.width != 0 ? expected : mSize,
                     std::min(target + kSpareOutputs, mOutputCount));
}

void LiveClient::queueOutputs(size_t target) {
    look();
    try {
        shapeOutputs(target);
    } catch (const SessionFailed&) {
    }
    for (size_t i = 0; i < mOutputCount && outstanding(kOutputPort) < target; ++i) {
        const std::optional<int32_t> slot = mOutputs.take();
        if (!slot) return;
        QOZBufferInfo output{*slot, mOutputs.buffer(*slot), nullptr, 0, {}};
        queue(kOutputPort, *slot);
        const qoz::host::TraceSlice slice("process (output)");
        if (vpp->process(nullptr, &output) == 0) continue;
        if (refuse(kOutputPort, *slot)) mOutputs.putBack(*slot);
    }
}

bool LiveClient::await(const std::function<bool()>& holds, bool queueing) {
    Clock::time_point end = Clock::now() + patience;
    look();
    while (!holds()) {
        if (serviceDied()) return false;
        const std::vector<ReturnedBuffer> done = take(std::min(end, Clock::now() + kRetry));
        const bool moved = handle(done);
        const Clock::time_point now = Clock::now();
        if (moved) end = now + patience;
        if (now >= end) return false;
        if (queueing && (moved || done.empty())) queueOutputs();
    }
    return true;
}

bool LiveClient::waitForSource() {
    return await([this] { return mSources.hasFree(); });
}

bool LiveClient::waitForTimestamp(uint64_t microseconds) {
    queueOutputs();
    return await([&] { return mNewest >= microseconds; });
}

// Makes the returned slots free and passes frames to onFrame. Returns true if there was progress.
// An output buffer without a frame is none: a service that has stopped working may return those. If
// onFrame throws, the other buffers are handled all the same, and the first exception is rethrown.
bool LiveClient::handle(const std::vector<ReturnedBuffer>& done) {
    bool moved = false;
    std::exception_ptr failure;
    for (const ReturnedBuffer& one : done) {
        moved = moved || one.port == kSourcePort || one.valid;
        if (one.port == kSourcePort) {
            mSources.putBack(one.slot);
            continue;
        }
        try {
            if (one.valid) frameCame(one);
        } catch (...) {
            if (!failure) failure = std::current_exception();
        }
        mOutputs.putBack(one.slot);
    }
    if (failure) std::rethrow_exception(failure);
    return moved;
}

void LiveClient::frameCame(const ReturnedBuffer& frame) {
    mNewest = std::max(mNewest, frame.timestamp);
    if (onFrame) onFrame(mOutputs.buffer(frame.slot), frame);
}

bool LiveClient::serviceLives() {
    const char* name = "vendor.vuq.hardware.vpp.IVppService/default";
    return ndk::SpAIBinder(AServiceManager_checkService(name)).get() != nullptr;
}

void LiveClient::disable() {
    vpp->disable();
    look();
}

void LiveClient::stop() {
    vpp->flushsync();
    disable();
}

void LiveClient::release() {
    mOutputs.clear();
    mSources.clear();
    vpp.reset();
}

std::string LiveClient::account() const {
    const Ledger ledger = this->ledger();
    std::string wrong;
    for (const auto& [port, slot] : ledger.missing())
        wrong += bufferName(port, slot) + " was never returned; ";
    const Ledger::Totals& totals = ledger.totals();
    if (!ledger.settled() && wrong.empty()) {
        wrong = format("%llu were returned without being outstanding, %llu on the wrong port",
                       big(totals.doubled), big(totals.wrongPort));
    }
    return wrong;
}

}  // namespace qoz::client
