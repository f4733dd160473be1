// SPDX-License-Identifier: Apache-2.0
// Records the log lines and the client callbacks of a component for comparison.
#pragma once

#include <android/log.h>
#include <host/control.h>
#include <qoz/ClientTypes.h>
#include <sys/types.h>

#include <chrono>
#include <condition_variable>
#include <functional>
#include <mutex>
#include <optional>
#include <set>
#include <string>
#include <vector>

namespace qoz::test {

// The limit of a wait for an event that a test expects to happen soon.
constexpr auto kSoon = std::chrono::seconds(20);

// Records all log lines from construction to destruction instead of printing them. Thread-safe.
class LogCapture {
  public:
    LogCapture();
    ~LogCapture() { host::setLogSink(mBefore); }

    // Returns the number of lines whose text, without the prefix "[name](address) ", equals `text`.
    size_t count(const std::string& text, std::optional<int> priority = {}) const;
    size_t errors(const std::string& text) const { return count(text, ANDROID_LOG_ERROR); }
    size_t countPrefixed(int maxPriority) const;  // with the prefix, at or below this priority
    std::vector<std::string> texts(std::optional<int> priority) const;
    void clear();

    // Called with the text of each line when it is logged, on the thread that logs it.
    std::function<void(const std::string&)> onLine;

  private:
    mutable std::mutex mLock;
    std::vector<host::LogLine> mLines;
    host::LogSink mBefore;
};

// The arguments of one call to onBufferDone().
struct Done {
    uint32_t port;
    int32_t slot;
    uint32_t valid;
    uint64_t timestamp;
    bool operator==(const Done&) const = default;
};
void PrintTo(const Done& done, std::ostream* out);

// A client that records its callbacks. Thread-safe.
class Recorder final : public android::IQOZCallback {
  public:
    void onBufferDone(uint32_t port, int32_t slot, uint32_t valid, uint64_t timestamp) override;
    void onConfigChanged(std::set<uint32_t> changes) override;

    std::vector<Done> done(std::optional<uint32_t> port = {}) const;
    std::vector<std::set<uint32_t>> changes() const;
    void clear();

    // Waits until `count` buffers have been returned. Returns false if they are not in time.
    bool waitFor(size_t count) const;

    // Called on the thread of the callback before a buffer is recorded.
    std::function<void(const Done&)> onDone;

  private:
    mutable std::mutex mLock;
    mutable std::condition_variable mChanged;
    std::vector<Done> mDone;
    std::vector<std::set<uint32_t>> mChanges;
};

// Polls until `condition` holds, for conditions without an event to wait for. Returns false if it
// does not hold in time.
bool eventually(const std::function<bool()>& condition);

// Returns true if a thread of this process waits: for a lock, a condition or the kernel.
bool isAsleep(pid_t thread);

}  // namespace qoz::test
