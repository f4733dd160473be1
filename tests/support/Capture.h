// SPDX-License-Identifier: Apache-2.0
// What a component said and what it called: log lines and client callbacks, kept for comparison.
#pragma once

#include <android/log.h>
#include <host/control.h>
#include <qoz/ClientTypes.h>

#include <chrono>
#include <condition_variable>
#include <functional>
#include <mutex>
#include <optional>
#include <set>
#include <string>
#include <vector>

namespace qoz::test {

// The end of a wait for something that a test expects to happen soon.
constexpr auto kSoon = std::chrono::seconds(20);

// Keeps all log lines from construction to destruction, in place of printing them.
class LogCapture {
  public:
    LogCapture();
    ~LogCapture() { host::setLogSink(mBefore); }

    // Lines whose text, without the "[name](address) " in front, is just this.
    size_t count(const std::string& text, std::optional<int> priority = {}) const;
    size_t errors(const std::string& text) const { return count(text, ANDROID_LOG_ERROR); }
    size_t countPrefixed(int maxPriority) const;  // with a prefix, below or at this priority
    std::vector<std::string> texts(std::optional<int> priority) const;
    void clear();

    // Called with each text as it is logged, on the thread that logs it.
    std::function<void(const std::string&)> onLine;

  private:
    mutable std::mutex mLock;
    std::vector<host::LogLine> mLines;
    host::LogSink mBefore;
};

struct Done {
    uint32_t port;
    int32_t slot;
    uint32_t valid;
    uint64_t timestamp;
    bool operator==(const Done&) const = default;
};
void PrintTo(const Done& done, std::ostream* out);

// A client that writes down what it is told.
class Recorder final : public android::IQOZCallback {
  public:
    void onBufferDone(uint32_t port, int32_t slot, uint32_t valid, uint64_t timestamp) override;
    void onConfigChanged(std::set<uint32_t> changes) override;

    std::vector<Done> done(std::optional<uint32_t> port = {}) const;
    std::vector<std::set<uint32_t>> changes() const;
    void clear();

    // Waits until `count` buffers have come back; false when they do not.
    bool waitFor(size_t count) const;

    // Called on the calling thread before a buffer is written down.
    std::function<void(const Done&)> onDone;

  private:
    mutable std::mutex mLock;
    mutable std::condition_variable mChanged;
    std::vector<Done> mDone;
    std::vector<std::set<uint32_t>> mChanges;
};

// Polls until `condition` holds; for what has no event to wait on. False when it does not in time.
bool eventually(const std::function<bool()>& condition);

}  // namespace qoz::test
