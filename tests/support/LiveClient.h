// A small client with rings of its own against the desk machine's real service: it lends, counts
// every buffer out and home in a ledger, and follows the stream's size. One thread drives it.
#pragma once

#include <gtest/gtest.h>
#include <qoz/VppComponent.h>
#include <qozplay/Ledger.h>

#include <array>
#include <condition_variable>
#include <functional>
#include <memory>
#include <mutex>
#include <optional>
#include <set>
#include <string>
#include <vector>

namespace qoz::test {

// One frame as it came out. Luma only, rows without padding.
struct OutFrame {
    uint64_t timestamp;
    uint32_t width;
    uint32_t height;
    std::vector<uint8_t> luma;
};

constexpr uint32_t kOutputPort = 0;  // as a client is told of them
constexpr uint32_t kSourcePort = 1;

class LiveClient final : public android::IQOZCallback {
  public:
    static constexpr int32_t kFirstSource = 100;  // no slot stands for a source and an output

    explicit LiveClient(bool keepPixels = false) : mKeepPixels(keepPixels) {}

    // False when the component cannot be enabled or started.
    bool start(uint32_t width, uint32_t height, android::ConfigParams params);

    // Of the component there is, or of a new one. Afterwards any buffer that the session before has
    // dropped is the client's again.
    bool enable();

    // Sends one frame of this size, painted by `paint` when given (R, G, B, A rows without
    // padding), and keeps the service supplied with output buffers. False when no source slot comes
    // home in time.
    bool send(uint32_t width, uint32_t height, int64_t nanoseconds,
              const std::function<void(uint8_t*)>& paint = {},
              std::optional<android::ConfigParams> carried = {});

    // Lends output buffers of the expected size until `target` are out.
    void lend(size_t target);
    void lendForOneMore() { lend(size_t{vpp->outBufReqsPerFrame()} * 3); }

    bool waitForTimestamp(uint64_t microseconds);
    void disable();
    void stop();  // flush and disable

    // Empty when every buffer has been given back once; else what is wrong.
    std::string account() const;

    qozplay::Ledger ledger() const;
    size_t doubled() const;  // returns of what was not out
    std::vector<OutFrame> frames() const;
    size_t configChanges() const;

    // Called on the thread that gives a buffer back, before it is written down.
    std::function<void()> onReturn;

    std::shared_ptr<android::VppComponent> vpp;

  private:
    void onBufferDone(uint32_t port, int32_t slot, uint32_t valid, uint64_t timestamp) override;
    void onConfigChanged(std::set<uint32_t> changes) override;
    int32_t takeSource(uint32_t width, uint32_t height);
    android::sp<android::GraphicBuffer> takeOutput(size_t slot, size_t target);
    void keep(int32_t slot, uint64_t timestamp);

    // Each config() with motion vectors has one more source stay until a flush: room for many.
    static constexpr size_t kSources = 40;
    static constexpr size_t kOutputs = 24;

    const bool mKeepPixels;
    mutable std::mutex mLock;
    std::condition_variable mHome;
    std::array<android::sp<android::GraphicBuffer>, kSources> mSources;
    std::array<android::sp<android::GraphicBuffer>, kOutputs> mOutputs;
    uint32_t mWidth = 0;  // of the newest source
    uint32_t mHeight = 0;
    qozplay::Ledger mLedger;
    // A session that disable leaves open (in ERROR), or that dies meanwhile, may still give back
    // what it had: the next worker brings it.
    std::multiset<qozplay::Ledger::Entry> mMayComeLate;
    size_t mCameLate = 0;
    uint64_t mNewest = 0;  // timestamp of a valid output
    std::vector<OutFrame> mFrames;
    std::vector<std::string> mWrong;
    size_t mConfigChanges = 0;
};

}  // namespace qoz::test
