// SPDX-License-Identifier: Apache-2.0
// One connection to a D-Bus message bus, and the thread that reads it.
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

// Objects and proxies on the connection may be created and destroyed on any thread. The connection
// holds its own lock while it runs a handler, and destroying an object or a proxy takes that lock,
// so no handler runs after its object has been destroyed. To avoid a deadlock, do not destroy an
// object or a proxy while holding a lock that one of its handlers takes.
class Bus {
  public:
    // Connects to the bus at `address`, or to the session bus if `address` is empty. Throws
    // sdbus::Error if that fails.
    explicit Bus(const std::string& address);
    // Waits for the reading thread, and therefore must not run on it.
    ~Bus();

    Bus(const Bus&) = delete;
    Bus& operator=(const Bus&) = delete;

    sdbus::IConnection& connection() { return *mConnection; }
    // The unique name of this connection.
    const std::string& name() const { return mName; }

    // Requests a call to `change`, on the reading thread, whenever the owner of `onlyName` changes,
    // or the owner of any name if `onlyName` is empty. `before` and `after` are the unique names of
    // the owners; they are empty if there is none. Must be called before start().
    using OwnerChange = std::function<void(const std::string& name, const std::string& before,
                                           const std::string& after)>;
    void watchOwners(const std::string& onlyName, OwnerChange change);

    // Starts the reading thread, which calls `onGone` when the connection has ended. A connection
    // ends when the bus closes it or when a message cannot be received, because the messages after
    // that one cannot be read either. Throws std::system_error if the thread cannot be created.
    void start(std::function<void()> onGone) EXCLUDES(mLock);
    bool isAlive() const { return mAlive.load(std::memory_order_acquire); }

    // Ends the notifications of watchOwners() and start(). After the return, no notification is
    // running. Must not be called on the reading thread.
    void stopNotifications() EXCLUDES(mLock);

    // The following functions ask the bus and wait for its answer, at most until `end`. The reading
    // thread receives the answer, so they must be called after start() and on another thread.

    // Asks the bus to start the service with this name if it is not running. Errors are logged.
    void startService(const std::string& busName, SteadyTime end);

    // Makes this connection the owner of a name. Returns false if another connection owns it or if
    // the bus does not answer. The first call to the name may arrive before the return.
    bool takeName(const std::string& busName, SteadyTime end);

    // Return the unique name and the process id of the owner of a name, or nullopt if there is no
    // owner or no answer.
    std::optional<std::string> ownerOf(const std::string& busName, SteadyTime end);
    std::optional<pid_t> pidOf(const std::string& busName, SteadyTime end);

  private:
    void read() EXCLUDES(mLock);
    void hangUp();
    template <typename Value, typename... Args>
    std::optional<Value> askBus(const char* method, SteadyTime end, const Args&... args);

    std::unique_ptr<sdbus::IConnection> mConnection;
    std::string mName;
    std::unique_ptr<sdbus::IProxy> mDriver;  // of the bus itself
    std::unique_ptr<sdbus::IProxy> mOwners;  // of the bus, with the handler of watchOwners()

    // Cleared by the reading thread. A caller that sees this late waits for the limit of its call.
    std::atomic<bool> mAlive{true};

    std::mutex mLock;
    std::function<void()> mOnGone GUARDED_BY(mLock);

    std::thread mReader;
};

// Owns a connection. A class with an object on the bus derives from this before it derives from its
// D-Bus adaptor, so that the adaptor is destroyed first.
struct KeepsBus {
    std::shared_ptr<Bus> bus;
};

}  // namespace qoz::host::vppd
