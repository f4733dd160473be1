// A small client with rings of its own against the desk machine's real service: it lends, counts
// every buffer out and home, and follows the stream's size. One thread drives it.
#pragma once

#include <gtest/gtest.h>
#include <qoz/VppComponent.h>

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

class LiveClient final : public android::IQOZCallback {
  public:
    explicit LiveClient(bool keepPixels = false) : mKeepPixels(keepPixels) {}

    // False when the component cannot be enabled or started.
    bool start(uint32_t width, uint32_t height, android::ConfigParams params);

    // Sends one frame of this size, painted by `paint` when given (R, G, B, A rows without
    // padding), and keeps the service supplied with output buffers. False when no source slot comes
    // home in time.
    bool send(uint32_t width, uint32_t height, int64_t nanoseconds,
              const std::function<void(uint8_t*)>& paint = {},
              std::optional<android::ConfigParams> carried = {});

    // Lends output buffers of the expected size until `target` are out.
    void lend(size_t target);

    bool waitForTimestamp(uint64_t microseconds);
    void stop();  // flush and disable

    // Empty when every buffer has been given back once; else what is wrong.
    std::string account() const;

    std::vector<OutFrame> frames() const;
    size_t configChanges() const;

    std::shared_ptr<android::VppComponent> vpp;

  private:
    void onBufferDone(uint32_t port, int32_t slot, uint32_t valid, uint64_t timestamp) override;
    void onConfigChanged(std::set<uint32_t> changes) override;
    int takeSource(uint32_t width, uint32_t height);
    void keep(int32_t slot, uint64_t timestamp);

    struct Slot {
        android::sp<android::GraphicBuffer> buffer;
        bool out = false;
    };
    static constexpr size_t kSources = 5;
    static constexpr size_t kOutputs = 24;

    const bool mKeepPixels;
    mutable std::mutex mLock;
    std::condition_variable mHome;
    std::array<Slot, kSources> mSources;
    std::array<Slot, kOutputs> mOutputs;
    size_t mLent = 0;      // outputs out now
    uint64_t mNewest = 0;  // timestamp of a valid output
    std::vector<OutFrame> mFrames;
    std::vector<std::string> mWrong;
    size_t mConfigChanges = 0;
};

}  // namespace qoz::test
