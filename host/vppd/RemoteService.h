// SPDX-License-Identifier: Apache-2.0
// The client's end of a VPP service in another process.
#pragma once

#include <cstdint>
#include <memory>
#include <string>

namespace qoz::host {

// A VPP service under its instance name, from construction to destruction; its calls go over D-Bus
// to qoz-vppd, which the bus starts when the first session is asked for, and again after its death.
//
// Every call ends within two seconds; one that is not answered by then, or fails on the way, has a
// transport error. When the process on the other side dies, or the connection to the bus is lost,
// its sessions are dead at once and their binders' death is announced; what the client gave them
// goes on a thread of its own. The end of the object does the same. A lost connection is made anew
// for the next session.
class RemoteVppService {
  public:
    // Empty: the session's bus. Throws std::runtime_error when there is none.
    explicit RemoteVppService(const std::string& address = {});
    ~RemoteVppService();

    RemoteVppService(const RemoteVppService&) = delete;
    RemoteVppService& operator=(const RemoteVppService&) = delete;

    // How often the service has died, or the bus with it.
    uint64_t deaths() const;

    // In the service's process; 0 when that cannot be asked.
    uint64_t faultsFired() const;

  private:
    struct Impl;
    std::unique_ptr<Impl> mImpl;
};

}  // namespace qoz::host
