#include "support/LiveClient.h"

#include <aidl/vendor/vuq/hardware/vpp/IVppService.h>
#include <android/binder_manager.h>

#include <algorithm>
#include <chrono>

#include "support/Capture.h"

namespace qoz::test {

using android::ConfigParams;
using android::GraphicBuffer;
using android::QOZBufferInfo;
using android::sp;
using android::VppComponent;

namespace {

constexpr int32_t kRgba = 1;
constexpr int32_t kNv12 = 0x7FA30C06;

std::string nameOf(uint32_t port, int32_t slot) {
    return (port == kOutputPort ? "output " : "source ") + std::to_string(slot);
}

bool serviceLives() {
    using Service = aidl::vendor::vuq::hardware::vpp::IVppService;
    const std::string name = std::string(Service::descriptor) + "/default";
    return ndk::SpAIBinder(AServiceManager_checkService(name.c_str())).get() != nullptr;
}

// `buffer` itself when it has this size, else a new one.
sp<GraphicBuffer> sized(const sp<GraphicBuffer>& buffer, uint32_t w, uint32_t h, int32_t format) {
    if (buffer != nullptr && buffer->getWidth() == w && buffer->getHeight() == h) return buffer;
    return sp<GraphicBuffer>(new GraphicBuffer(w, h, format, 0x333));
}

}  // namespace

bool LiveClient::start(uint32_t width, uint32_t height, ConfigParams params) {
    if (!enable()) return false;
    vpp->config(width, height, kRgba, params, false);
    // The first operation waits for the start; an output buffer also wants the size it sets.
    return eventually([this] { return vpp->state() == VppComponent::ACTIVE; });
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
        source->lock(GraphicBuffer::USAGE_SW_WRITE_OFTEN, &pixels);
        paint(static_cast<uint8_t*>(pixels));
        source->unlock();
    }
    std::vector<QOZBufferInfo> packet{{slot, source, nullptr, nanoseconds, carried}};
    if (vpp->process(&packet, nullptr) != 0) {
        const std::lock_guard lock(mLock);
        mLedger.refuse(kSourcePort, slot);
    }
    lendForOneMore();
    return true;
}

// -1 when no source comes home in time.
int32_t LiveClient::takeSource(uint32_t width, uint32_t height) {
    std::unique_lock lock(mLock);
    int32_t free = -1;
    mHome.wait_for(lock, kSoon, [&] {
        const int32_t end = kFirstSource + static_cast<int32_t>(kSources);
        for (int32_t slot = kFirstSource; slot < end && free < 0; ++slot) {
            if (mLedger.lend(kSourcePort, slot)) free = slot;
        }
        return free >= 0;
    });
    if (free < 0) return -1;
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

bool LiveClient::waitForTimestamp(uint64_t microseconds) {
    const auto end = std::chrono::steady_clock::now() + kSoon;
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

std::vector<OutFrame> LiveClient::frames() const {
    const std::lock_guard lock(mLock);
    return mFrames;
}

qozplay::Ledger LiveClient::ledger() const {
    const std::lock_guard lock(mLock);
    return mLedger;
}

size_t LiveClient::doubled() const {
    const std::lock_guard lock(mLock);
    return mLedger.totals().doubled - mCameLate;
}

size_t LiveClient::configChanges() const {
    const std::lock_guard lock(mLock);
    return mConfigChanges;
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
    if (port == kOutputPort && valid != 0) keep(slot, timestamp);
    mHome.notify_all();
}

void LiveClient::keep(int32_t slot, uint64_t timestamp) {
    mNewest = std::max(mNewest, timestamp);
    const sp<GraphicBuffer>& buffer = mOutputs[static_cast<size_t>(slot)];
    OutFrame frame{timestamp, buffer->getWidth(), buffer->getHeight(), {}};
    if (mKeepPixels) {
        void* pixels = nullptr;
        buffer->lock(GraphicBuffer::USAGE_SW_READ_OFTEN, &pixels);
        for (uint32_t y = 0; y < frame.height; ++y) {
            const auto* row = static_cast<uint8_t*>(pixels) + size_t{y} * buffer->getStride();
            frame.luma.insert(frame.luma.end(), row, row + frame.width);
        }
        buffer->unlock();
    }
    mFrames.push_back(std::move(frame));
}

void LiveClient::onConfigChanged(std::set<uint32_t>) {
    const std::lock_guard lock(mLock);
    ++mConfigChanges;
}

}  // namespace qoz::test
