// SPDX-License-Identifier: Apache-2.0
// A minimal client. It plays ten frames through the component at twice their rate and exits with 0
// if every queued buffer was returned once. It is meant to be copied, so it uses only the public
// header and, on a Linux machine, the host simulator. The client's guide shows the part between the
// marks; a test compares the two.
#include <host/control.h>
#include <qoz/VppComponent.h>

#include <cstdio>

namespace {

using android::GraphicBuffer;
using android::QOZBufferInfo;
using android::QOZFormat;
using android::QOZPort;
using android::QOZResult;
using BufferRef = android::sp<GraphicBuffer>;

constexpr uint32_t kWidth = 320;
constexpr uint32_t kHeight = 192;
constexpr android::ConfigParams kTwiceTheRate{android::QOZMode::kFrc, 0, 1,
                                              android::QOZUpscale::k1x};
constexpr int32_t kOutputs = 8;           // slots 0 to 7
constexpr int32_t kSlots = kOutputs + 3;  // the sources have the slots after the outputs
constexpr uint32_t kFrames = 10;
constexpr uint32_t kFramesOut = 1 + (kFrames - 1) * 2;  // one interpolated between each two

// Keeps account of the outstanding buffers. The callbacks run on several threads, so all members
// are guarded by the lock.
class Client final : public android::IQOZCallback {
  public:
    void onBufferDone(uint32_t port, int32_t slot, uint32_t valid, uint64_t timestamp) override {
        const bool source = port == QOZPort::kSource;
        const char* what = source ? "source released" : valid != 0 ? "frame" : "output not used";
        std::printf("slot %d: %s, %.1f ms\n", slot, what, static_cast<double>(timestamp) / 1000);
        const std::lock_guard lock(mLock);
        if (mOutstanding.erase(slot) == 0) mTwice = true;
        if (!source && valid != 0) ++mFrames;
        mChanged.notify_all();
    }

    void onConfigChanged(std::set<uint32_t>) override {}

    // Call this before a buffer is queued, because it may be returned before process() returns.
    // Returns false if the buffer is already outstanding.
    bool markOutstanding(int32_t slot) {
        const std::lock_guard lock(mLock);
        return mOutstanding.insert(slot).second;
    }

    // Call this if process() has not taken the buffer.
    void clearOutstanding(int32_t slot) {
        const std::lock_guard lock(mLock);
        mOutstanding.erase(slot);
    }

    bool isComplete() {
        const std::lock_guard lock(mLock);
        return !mTwice && mOutstanding.empty();
    }

    // Waits until more than `frames` frames have arrived and stores their number. Returns whether
    // some are still missing; returns false if none has arrived for ten seconds.
    bool awaitMore(uint32_t& frames) {
        std::unique_lock lock(mLock);
        const auto grown = [&] { return mFrames > frames; };
        if (!mChanged.wait_for(lock, std::chrono::seconds(10), grown)) return false;
        frames = mFrames;
        return frames < kFramesOut;
    }

  private:
    std::mutex mLock;
    std::condition_variable mChanged;
    std::set<int32_t> mOutstanding;
    uint32_t mFrames = 0;
    bool mTwice = false;
};

BufferRef make(uint32_t width, uint32_t height, uint32_t format) {
    return BufferRef(new GraphicBuffer(width, height, static_cast<int>(format),
                                       GraphicBuffer::USAGE_SW_WRITE_OFTEN));
}

// Draws a white square that moves eight pixels to the right with every frame.
void paint(const BufferRef& buffer, uint32_t frame) {
    void* pixels = nullptr;
    if (buffer->lock(GraphicBuffer::USAGE_SW_WRITE_OFTEN, &pixels) != android::OK) return;
    for (uint32_t y = 0; y < kHeight; ++y) {
        auto* row = static_cast<uint32_t*>(pixels) + size_t{y} * buffer->getStride();
        for (uint32_t x = 0; x < kWidth; ++x)
            row[x] = y / 64 == 1 && x - 8 * frame < 64 ? 0xFFFFFFFF : 0xFF402000;
    }
    buffer->unlock();
}

}  // namespace

int main() {
    const qoz::host::VppService service;  // a device already has one
    Client client;
    auto vpp = std::make_shared<android::VppComponent>();
    if (!vpp->enable("minimal", &client, false)) return 1;
    vpp->config(kWidth, kHeight, QOZFormat::kRgba8888, kTwiceTheRate, true);
    std::vector<BufferRef> buffers;
    while (buffers.size() < kOutputs)
        buffers.push_back(
            make(vpp->expectedOutputWidth(), vpp->expectedOutputHeight(), QOZFormat::kNv12Vemo));
    while (buffers.size() < kSlots)
        buffers.push_back(make(kWidth, kHeight, QOZFormat::kRgba8888));

    // [stream]
    const auto queueFreeOutputs = [&] {
        for (int32_t slot = 0; slot < kOutputs; ++slot) {
            if (!client.markOutstanding(slot)) continue;
            QOZBufferInfo output{slot, buffers[slot], nullptr, 0, {}};
            if (vpp->process(nullptr, &output) != QOZResult::kTaken) client.clearOutstanding(slot);
        }
    };
    for (uint32_t frame = 0; frame < kFrames; ++frame) {
        const auto slot = static_cast<int32_t>(kOutputs + frame % (kSlots - kOutputs));
        if (!client.markOutstanding(slot)) break;  // before process(), which may return the buffer
        paint(buffers[slot], frame);
        std::vector<QOZBufferInfo> source{{slot, buffers[slot], nullptr, frame * 33'333'333LL, {}}};
        if (vpp->process(&source, nullptr) != QOZResult::kTaken) client.clearOutstanding(slot);
        queueFreeOutputs();
    }
    // Wait until all frames have arrived, or none has arrived for ten seconds.
    for (uint32_t frames = 0; client.awaitMore(frames);)
        queueFreeOutputs();
    vpp->flushsync();  // returns all outstanding buffers, also the last source
    vpp->disable();
    // [stream]
    return client.isComplete() ? 0 : 1;
}
