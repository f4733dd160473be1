// SPDX-License-Identifier: Apache-2.0
// A VPP service in another process, for clients in this one.
#pragma once

#include <cstdint>
#include <memory>
#include <string>

namespace qoz::host {

// Registers a VPP service under its instance name from construction to destruction. Its calls go
// over D-Bus to qoz-vppd. The bus starts that process when a client requests a session and it is
// not running, so also after its death.
//
// Every call ends within two seconds. A call that is not answered by then, or that fails on its
// way, has a transport error. When the service's process dies or the connection to the bus is lost,
// all sessions of that process or connection are dead at once, the deaths of their binders are
// announced, and the clients' callback objects are released on a thread of this object. Destroying
// the object has the same effect. After the loss of the connection, the next call opens a new one.
class RemoteVppService {
  public:
    // Connects to the bus at `address`, or to the session bus if `address` is empty. Throws
    // std::runtime_error if that fails.
    explicit RemoteVppService(const std::string& address = {});
    ~RemoteVppService();

    RemoteVppService(const RemoteVppService&) = delete;
    RemoteVppService& operator=(const RemoteVppService&) = delete;

    // Returns how often the service has died or the connection to the bus has been lost.
    uint64_t deaths() const;

    // Returns the number of faults that have fired in the service's process, or 0 if the process
    // does not answer.
    uint64_t faultsFired() const;

  private:
    struct Impl;
    std::unique_ptr<Impl> mImpl;
};

}  // namespace qoz::host
