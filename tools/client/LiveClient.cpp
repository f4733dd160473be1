#include "LiveClient.h"

#include <android/binder_manager.h>

#include <algorithm>
#include <chrono>

namespace qoz {

using android::ConfigParams;
using android::GraphicBuffer;
using android::QOZBufferInfo;
using android::sp;
using android::VppComponent;

namespace {

constexpr int32_t kRgba = 1;
constexpr int32_t kNv12 = 0x7FA30C06;
constexpr auto kPatience = std::chrono::seconds(20);  // with what is expected soon

std::string nameOf(uint32_t port, int32_t slot) {
    return (port == kOutputPort ? "output " : "source ") + std::to_string(slot);
}

// `buffer` itself when it has this size, else a new one.
sp<GraphicBuffer> sized(const sp<GraphicBuffer>& buffer, uint32_t w, uint32_t h, int32_t format) {
    if (buffer != nullptr && buffer->getWidth() == w && buffer->getHeight() == h) return buffer;
    return sp<GraphicBuffer>(new GraphicBuffer(w, h, format, 0x333));
}

}  // namespace

bool LiveClient::start(uint32_t width, uint32_t height, ConfigParams params) {
    if (!enable()) return false;
    vpp->config(width, height, kRgba, params, true);
    // A component that has started before does not wait in config(); the look at the port does.
    return vpp->isInputPortEnabled(width, height, kRgba);
}

bool LiveClient::enable() {
    if (vpp == nullptr) vpp = std::make_shared<VppComponent>();
    {
        const std::lock_guard lock(mLock);
        mLedger = {};
        mCameLate = 0;
        mWrong.clear();
    }
    return vpp->enable("live", this, false);
}

bool LiveClient::send(uint32_t width, uint32_t height, int64_t nanoseconds,
                      const std::function<void(uint8_t*)>& paint,
                      std::optional<ConfigParams> carried) {
    const int32_t slot = takeSource(width, height);
    if (slot < 0) return false;
    sp<GraphicBuffer> source = mSources[static_cast<size_t>(slot - kFirstSource)];
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
    lendForOneMore();
    return true;
}

bool LiveClient::waitForSource() {
    std::unique_lock lock(mLock);
    return mHome.wait_for(lock, kPatience,
                          [this] { return mLedger.outstanding(kSourcePort) < mSources.size(); });
}

// -1 when no source comes home in time.
int32_t LiveClient::takeSource(uint32_t width, uint32_t height) {
    if (!waitForSource()) return -1;
    const std::lock_guard lock(mLock);
    int32_t free = kFirstSource;
    while (!mLedger.lend(kSourcePort, free))
        ++free;
    auto& buffer = mSources[static_cast<size_t>(free - kFirstSource)];
    buffer = sized(buffer, width, height, kRgba);
    mWidth = width;
    mHeight = height;
    return free;
}

void LiveClient::lend(size_t target) {
    for (size_t i = 0; i < mOutputs.size(); ++i) {
        const auto slot = static_cast<int32_t>(i);
        QOZBufferInfo output{slot, takeOutput(i, target), nullptr, 0, {}};
        if (output.buffer == nullptr || vpp->process(nullptr, &output) == 0) continue;
        const std::lock_guard lock(mLock);
        mLedger.refuse(kOutputPort, slot);
    }
}

// Null when enough are out, or this one is.
sp<GraphicBuffer> LiveClient::takeOutput(size_t slot, size_t target) {
    const std::lock_guard lock(mLock);
    if (mLedger.outstanding(kOutputPort) >= target) return {};
    if (!mLedger.lend(kOutputPort, static_cast<int32_t>(slot))) return {};
    const uint32_t width = vpp->expectedOutputWidth();
    const uint32_t height = vpp->expectedOutputHeight();
    sp<GraphicBuffer>& buffer = mOutputs[slot];
    buffer = width != 0
                 ? sized(buffer, width, height, kNv12)
                 : sized(buffer, mWidth, mHeight, kNv12);  // a start failed: as large as the source
    return buffer;
}

bool LiveClient::serviceLives() {
    const char* name = "vendor.vuq.hardware.vpp.IVppService/default";
    return ndk::SpAIBinder(AServiceManager_checkService(name)).get() != nullptr;
}

bool LiveClient::waitForTimestamp(uint64_t microseconds) {
    const auto end = std::chrono::steady_clock::now() + kPatience;
    while (std::chrono::steady_clock::now() < end) {
        lendForOneMore();
        std::unique_lock lock(mLock);
        if (mHome.wait_for(lock, std::chrono::milliseconds(20),
                           [&] { return mNewest >= microseconds; })) {
            return true;
        }
    }
    return false;
}

void LiveClient::disable() {
    bool loose = vpp->state() == VppComponent::ERROR;
    vpp->disable();
    loose = loose || !serviceLives();
    const std::lock_guard lock(mLock);
    const auto missing = mLedger.missing();
    if (loose) mMayComeLate.insert(missing.begin(), missing.end());
}

void LiveClient::stop() {
    vpp->flushsync();
    disable();
}

std::string LiveClient::account() const {
    const std::lock_guard lock(mLock);
    std::string wrong;
    for (const auto& text : mWrong)
        wrong += text + "; ";
    for (const auto& [port, slot] : mLedger.missing())
        wrong += nameOf(port, slot) + " never came back; ";
    return wrong;
}

qozplay::Ledger LiveClient::ledger() const {
    const std::lock_guard lock(mLock);
    return mLedger;
}

size_t LiveClient::doubled() const {
    const std::lock_guard lock(mLock);
    return mLedger.totals().doubled - mCameLate;
}

void LiveClient::onBufferDone(uint32_t port, int32_t slot, uint32_t valid, uint64_t timestamp) {
    if (onReturn) onReturn();
    const std::lock_guard lock(mLock);
    using Verdict = qozplay::Ledger::Verdict;
    switch (mLedger.giveBack(port, slot)) {
        case Verdict::Good:
            break;
        case Verdict::Doubled:
            if (const auto late = mMayComeLate.find({port, slot}); late != mMayComeLate.end()) {
                mMayComeLate.erase(late);
                ++mCameLate;
                return;
            }
            mWrong.push_back(nameOf(port, slot) + " came back without being out");
            return;
        case Verdict::WrongPort:
            mWrong.push_back(nameOf(port, slot) + " came back to the wrong port");
            return;
    }
    if (port == kOutputPort && valid != 0) {
        mNewest = std::max(mNewest, timestamp);
        if (onFrame) onFrame(*mOutputs[static_cast<size_t>(slot)], timestamp);
    }
    mHome.notify_all();
}

}  // namespace qoz
