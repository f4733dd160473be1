// SPDX-License-Identifier: Apache-2.0
// One connection to a bus, and the thread that reads it.
#pragma once

#include <android-base/thread_annotations.h>
#include <sdbus-c++/sdbus-c++.h>
#include <sys/types.h>

#include <atomic>
#include <chrono>
#include <functional>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <thread>

namespace qoz::host::vppd {

using SteadyTime = std::chrono::steady_clock::time_point;

// Objects and proxies on the connection may come and go on any thread: the connection's own lock is
// held while a handler of theirs runs, so that one that is gone is not called any more. For the
// same reason they must not go with a lock held that a handler takes.
class Bus {
  public:
    // Empty: the session's bus. Throws sdbus::Error when there is none.
    explicit Bus(const std::string& address);
    // Waits for the reading thread; never on that.
    ~Bus();

    Bus(const Bus&) = delete;
    Bus& operator=(const Bus&) = delete;

    sdbus::IConnection& connection() { return *mConnection; }
    const std::string& name() const { return mName; }

    // Tells, on the reading thread, of each name whose owner changes; empty: nobody. To be called
    // before start().
    using OwnerChange = std::function<void(const std::string& name, const std::string& before,
                                           const std::string& after)>;
    void watchOwners(const std::string& onlyName, OwnerChange change);

    // `onGone` is called on the reading thread when the connection has ended: the bus has gone
    // away, or a message could not be received, which no stream of messages survives. Throws
    // std::system_error when there is no thread to be had.
    void start(std::function<void()> onGone) EXCLUDES(mLock);
    bool isAlive() const { return mAlive.load(std::memory_order_acquire); }

    // Nobody is told of anything any more, and no telling is under way.
    void stopTelling() EXCLUDES(mLock);

    // Has the bus start a service that it knows how to start and that does not run.
    void startService(const std::string& busName, SteadyTime end);

    // Makes this connection the owner of a name. Returns false if another one owns it. To be called
    // after start(), on another thread than the reader's: the answer comes through the reader, and
    // so does the first call to the name, which may come before the answer.
    bool takeName(const std::string& busName, SteadyTime end);

    // The unique name of the owner.
    std::optional<std::string> ownerOf(const std::string& busName, SteadyTime end);
    std::optional<pid_t> pidOf(const std::string& busName, SteadyTime end);

  private:
    void read() EXCLUDES(mLock);
    template <typename Value, typename... Args>
    std::optional<Value> askDriver(const char* method, SteadyTime end, const Args&... args);

    std::unique_ptr<sdbus::IConnection> mConnection;
    std::string mName;
    std::unique_ptr<sdbus::IProxy> mDriver;
    std::unique_ptr<sdbus::IProxy> mOwners;  // the watch

    std::atomic<bool> mAlive{true};  // an end that is seen late costs a call its limit, no more

    std::mutex mLock;
    std::function<void()> mOnGone GUARDED_BY(mLock);

    std::thread mReader;
};

// A base for what is on a connection, so that the connection goes last.
struct KeepsBus {
    std::shared_ptr<Bus> bus;
};

}  // namespace qoz::host::vppd
