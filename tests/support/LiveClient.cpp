#include "support/LiveClient.h"

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

// `buffer` itself when it has this size, else a new one.
sp<GraphicBuffer> sized(const sp<GraphicBuffer>& buffer, uint32_t w, uint32_t h, int32_t format) {
    if (buffer != nullptr && buffer->getWidth() == w && buffer->getHeight() == h) return buffer;
    return sp<GraphicBuffer>(new GraphicBuffer(w, h, format, 0x333));
}

}  // namespace

bool LiveClient::start(uint32_t width, uint32_t height, ConfigParams params) {
    vpp = std::make_shared<VppComponent>();
    if (!vpp->enable("live", this, false)) return false;
    vpp->config(width, height, kRgba, params, false);
    // The first operation waits for the start; an output buffer also wants the size it sets.
    return eventually([this] { return vpp->state() == VppComponent::ACTIVE; });
}

bool LiveClient::send(uint32_t width, uint32_t height, int64_t nanoseconds,
                      const std::function<void(uint8_t*)>& paint,
                      std::optional<ConfigParams> carried) {
    const int slot = takeSource(width, height);
    if (slot < 0) return false;
    sp<GraphicBuffer> source = mSources[static_cast<size_t>(slot)].buffer;
    if (paint) {
        void* pixels = nullptr;
        source->lock(GraphicBuffer::USAGE_SW_WRITE_OFTEN, &pixels);
        paint(static_cast<uint8_t*>(pixels));
        source->unlock();
    }
    std::vector<QOZBufferInfo> packet{{slot, source, nullptr, nanoseconds, carried}};
    if (vpp->process(&packet, nullptr) != 0) {
        const std::lock_guard lock(mLock);
        mSources[static_cast<size_t>(slot)].out = false;  // refused: still ours
    }
    lend(vpp->outBufReqsPerFrame() * 3);
    return true;
}

int LiveClient::takeSource(uint32_t width, uint32_t height) {
    std::unique_lock lock(mLock);
    Slot* home = nullptr;
    const bool found = mHome.wait_for(lock, kSoon, [&] {
        for (Slot& slot : mSources) {
            if (!slot.out) home = &slot;
        }
        return home != nullptr;
    });
    if (!found) return -1;
    home->buffer = sized(home->buffer, width, height, kRgba);
    home->out = true;
    return static_cast<int>(home - mSources.data());
}

void LiveClient::lend(size_t target) {
    for (size_t i = 0; i < mOutputs.size(); ++i) {
        QOZBufferInfo output{static_cast<int32_t>(i), nullptr, nullptr, 0, {}};
        {
            const std::lock_guard lock(mLock);
            Slot& slot = mOutputs[i];
            if (slot.out || mLent >= target) continue;
            slot.buffer =
                sized(slot.buffer, vpp->expectedOutputWidth(), vpp->expectedOutputHeight(), kNv12);
            slot.out = true;
            ++mLent;
            output.buffer = slot.buffer;
        }
        if (vpp->process(nullptr, &output) == 0) continue;
        const std::lock_guard lock(mLock);
        mOutputs[i].out = false;
        --mLent;
    }
}

bool LiveClient::waitForTimestamp(uint64_t microseconds) {
    const auto end = std::chrono::steady_clock::now() + kSoon;
    while (std::chrono::steady_clock::now() < end) {
        lend(vpp->outBufReqsPerFrame() * 3);
        std::unique_lock lock(mLock);
        if (mHome.wait_for(lock, std::chrono::milliseconds(20),
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
    for (size_t i = 0; i < mSources.size(); ++i) {
        if (mSources[i].out) wrong += "source " + std::to_string(i) + " never came back; ";
    }
    for (size_t i = 0; i < mOutputs.size(); ++i) {
        if (mOutputs[i].out) wrong += "output " + std::to_string(i) + " never came back; ";
    }
    return wrong;
}

std::vector<OutFrame> LiveClient::frames() const {
    const std::lock_guard lock(mLock);
    return mFrames;
}

size_t LiveClient::configChanges() const {
    const std::lock_guard lock(mLock);
    return mConfigChanges;
}

void LiveClient::onBufferDone(uint32_t port, int32_t slot, uint32_t valid, uint64_t timestamp) {
    (void)vpp->state();  // as clients do
    const std::lock_guard lock(mLock);
    const size_t count = port == 0 ? mOutputs.size() : mSources.size();
    if (slot < 0 || static_cast<size_t>(slot) >= count) {
        mWrong.push_back("no slot " + std::to_string(slot) + " on port " + std::to_string(port));
        return;
    }
    Slot& home =
        port == 0 ? mOutputs[static_cast<size_t>(slot)] : mSources[static_cast<size_t>(slot)];
    if (!home.out) mWrong.push_back("slot " + std::to_string(slot) + " came back twice");
    home.out = false;
    if (port == 0) {
        --mLent;
        if (valid != 0) keep(slot, timestamp);
    }
    mHome.notify_all();
}

void LiveClient::keep(int32_t slot, uint64_t timestamp) {
    mNewest = std::max(mNewest, timestamp);
    const sp<GraphicBuffer>& buffer = mOutputs[static_cast<size_t>(slot)].buffer;
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
