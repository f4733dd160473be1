// A small client with rings of its own, for long runs and for tests: it lends, counts every buffer
// out and home in a ledger, and follows the stream's size. One thread drives it.
#pragma once

#include <qoz/VppComponent.h>
#include <qozplay/Ledger.h>

#include <condition_variable>
#include <functional>
#include <memory>
#include <mutex>
#include <optional>
#include <set>
#include <string>
#include <vector>

namespace qoz {

constexpr uint32_t kOutputPort = 0;  // as a client is told of them
constexpr uint32_t kSourcePort = 1;

class LiveClient final : public android::IQOZCallback {
  public:
    static constexpr int32_t kFirstSource = 100;  // no slot stands for a source and an output
    // Each config() with motion vectors has one more source stay until a flush: room for many.
    static constexpr size_t kSources = 40;

    explicit LiveClient(size_t sources = kSources, size_t outputs = 24)
        : mSources(sources), mOutputs(outputs) {}

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

    bool waitForSource();  // that send() would find no source to wait for
    bool waitForTimestamp(uint64_t microseconds);
    void disable();
    void stop();  // flush and disable

    // Empty when every buffer has been given back once; else what is wrong.
    std::string account() const;

    qozplay::Ledger ledger() const;
    size_t doubled() const;  // returns of what was not out

    // Called on the thread that gives a buffer back, before it is written down.
    std::function<void()> onReturn;

    // Called with each frame that comes out, one at a time, before its buffer is lent again.
    std::function<void(android::GraphicBuffer& frame, uint64_t microseconds)> onFrame;

    static bool serviceLives();

    std::shared_ptr<android::VppComponent> vpp;

  private:
    void onBufferDone(uint32_t port, int32_t slot, uint32_t valid, uint64_t timestamp) override;
    void onConfigChanged(std::set<uint32_t>) override {}
    int32_t takeSource(uint32_t width, uint32_t height);
    android::sp<android::GraphicBuffer> takeOutput(size_t slot, size_t target);

    mutable std::mutex mLock;
    std::condition_variable mHome;
    std::vector<android::sp<android::GraphicBuffer>> mSources, mOutputs;
    uint32_t mWidth = 0;  // of the newest source
    uint32_t mHeight = 0;
    qozplay::Ledger mLedger;
    // A session that disable leaves open (in ERROR), or that dies meanwhile, may still give back
    // what it had: the next worker brings it.
    std::multiset<qozplay::Ledger::Entry> mMayComeLate;
    size_t mCameLate = 0;
    uint64_t mNewest = 0;  // timestamp of a valid output
    std::vector<std::string> mWrong;
};

}  // namespace qoz
