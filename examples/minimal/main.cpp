// SPDX-License-Identifier: Apache-2.0
// The least that a client does: ten frames through the component at twice their rate. Exit code 0:
// every buffer that was handed over has come back.
#include <host/control.h>
#include <qoz/VppComponent.h>

#include <cstdio>

namespace {

using android::GraphicBuffer;
using android::QOZBufferInfo;
using BufferRef = android::sp<GraphicBuffer>;

constexpr uint32_t kWidth = 320;
constexpr uint32_t kHeight = 192;
constexpr int32_t kRgba = 1, kNv12 = 0x7FA30C06;
constexpr int32_t kOutputs = 8;           // slots 0 to 7
constexpr int32_t kSlots = kOutputs + 3;  // the sources' are behind them
constexpr uint32_t kFrames = 10;
constexpr uint32_t kFramesOut = 1 + (kFrames - 1) * 2;  // one between each two

// Which buffers are outstanding. The callbacks come on several threads.
class Client : public android::IQOZCallback {
  public:
    void onBufferDone(uint32_t port, int32_t slot, uint32_t valid, uint64_t timestamp) override {
        const bool frame = port == 0 && valid != 0;
        const char* what = port == 1 ? "source released" : frame ? "frame" : "output not used";
        std::printf("slot %d: %s, %.1f ms\n", slot, what, static_cast<double>(timestamp) / 1000);
        const std::lock_guard lock(mLock);
        if (mLent.erase(slot) == 0) mTwice = true;
        if (frame) ++mFrames;
        mMoved.notify_all();
    }

    void onConfigChanged(std::set<uint32_t>) override {}

    // Before the buffer is handed over: it may be back before that call returns.
    bool take(int32_t slot) {
        const std::lock_guard lock(mLock);
        return mLent.insert(slot).second;
    }

    void keep(int32_t slot) {
        const std::lock_guard lock(mLock);
        mLent.erase(slot);
    }

    bool isComplete() {
        const std::lock_guard lock(mLock);
        return !mTwice && mLent.empty();
    }

    // True: not yet all frames, but `frames` has grown.
    bool awaitMore(uint32_t& frames) {
        std::unique_lock lock(mLock);
        const auto grown = [&] { return mFrames > frames; };
        if (!mMoved.wait_for(lock, std::chrono::seconds(10), grown)) return false;
        frames = mFrames;
        return frames < kFramesOut;
    }

  private:
    std::mutex mLock;
    std::condition_variable mMoved;
    std::set<int32_t> mLent;
    uint32_t mFrames = 0;
    bool mTwice = false;
};

BufferRef make(uint32_t width, uint32_t height, int32_t format) {
    return BufferRef(new GraphicBuffer(width, height, format, GraphicBuffer::USAGE_SW_WRITE_OFTEN));
}

// A white square that moves eight pixels to the right with every frame.
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
    const qoz::host::VppService service;  // on a device it is there already
    Client client;
    auto vpp = std::make_shared<android::VppComponent>();
    if (!vpp->enable("minimal", &client, false)) return 1;
    vpp->config(kWidth, kHeight, kRgba, {1, 0, /*interpFactor*/ 1, /*upscaleIndex*/ 0}, true);
    std::vector<BufferRef> buffers;
    while (buffers.size() < kOutputs)
        buffers.push_back(make(vpp->expectedOutputWidth(), vpp->expectedOutputHeight(), kNv12));
    while (buffers.size() < kSlots)
        buffers.push_back(make(kWidth, kHeight, kRgba));

    const auto lendOutputs = [&] {
        for (int32_t slot = 0; slot < kOutputs; ++slot) {
            QOZBufferInfo output{slot, buffers[slot], nullptr, 0, {}};
            if (client.take(slot) && vpp->process(nullptr, &output) != 0) client.keep(slot);
        }
    };
    for (uint32_t frame = 0; frame < kFrames; ++frame) {
        const auto slot = static_cast<int32_t>(kOutputs + frame % (kSlots - kOutputs));
        if (!client.take(slot)) break;
        paint(buffers[slot], frame);
        std::vector<QOZBufferInfo> source{{slot, buffers[slot], nullptr, frame * 33'333'333LL, {}}};
        if (vpp->process(&source, nullptr) != 0) client.keep(slot);
        lendOutputs();
    }
    for (uint32_t frames = 0; client.awaitMore(frames);)
        lendOutputs();
    vpp->flushsync();
    vpp->disable();
    return client.isComplete() ? 0 : 1;
}
