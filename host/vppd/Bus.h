// One connection to a bus, and the thread that reads it.
#pragma once

#include <sdbus-c++/sdbus-c++.h>
#include <sys/types.h>

#include <functional>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <thread>

namespace qoz::host::vppd {

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

    // `onGone` is called on the reading thread when the bus has gone away.
    void start(std::function<void()> onGone);

    // Nobody is told of anything any more, and no telling is under way.
    void stopTelling();

    // Has the bus start a service that it knows how to start and that does not run; at most
    // kStartLimit.
    void startService(const std::string& busName);

    // The unique name of the owner.
    std::optional<std::string> ownerOf(const std::string& busName);
    std::optional<pid_t> pidOf(const std::string& busName);

  private:
    void read();

    std::unique_ptr<sdbus::IConnection> mConnection;
    std::string mName;
    std::unique_ptr<sdbus::IProxy> mDriver;
    std::unique_ptr<sdbus::IProxy> mOwners;  // the watch

    std::mutex mLock;
    std::function<void()> mOnGone;

    std::thread mReader;
};

// A base for what is on a connection, so that the connection goes last.
struct KeepsBus {
    std::shared_ptr<Bus> bus;
};

}  // namespace qoz::host::vppd
