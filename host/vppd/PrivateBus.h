// SPDX-License-Identifier: Apache-2.0
// A private message bus with a VPP service in its own process, for one run of a test or a tool.
#pragma once

#include <sys/types.h>

#include <filesystem>
#include <optional>
#include <string>
#include <vector>

namespace qoz::host {

// Starts `dbus-daemon` on a socket in a new folder under `parent`. The bus starts qoz-vppd with
// `arguments` when a client first uses the name of the service.
//
// The kernel ends the bus when the thread that created this object ends, so that no bus remains if
// this process is killed. Therefore that thread must outlive the object.
class PrivateBus {
  public:
    // `program` is the path of qoz-vppd. If it is empty, the program is searched for next to the
    // running program and in the build. Throws std::runtime_error if the bus cannot be started.
    explicit PrivateBus(
        const std::vector<std::string>& arguments = {},
        const std::filesystem::path& parent = std::filesystem::temp_directory_path(),
        std::string program = {});

    // Ends the service's process and the bus. A process that does not end in time is killed.
    ~PrivateBus();

    PrivateBus(const PrivateBus&) = delete;
    PrivateBus& operator=(const PrivateBus&) = delete;

    const std::string& address() const { return mAddress; }

    // Returns the process id of the service, or nullopt if it is not running.
    std::optional<pid_t> servicePid() const;

  private:
    // A folder that is removed with its contents by the destructor.
    struct Folder {
        explicit Folder(const std::filesystem::path& parent);
        ~Folder();
        Folder(const Folder&) = delete;
        Folder& operator=(const Folder&) = delete;
        std::filesystem::path path;
    };

    void writeConfig(const std::vector<std::string>& arguments, const std::string& program) const;
    void start();

    const Folder mFolder;
    std::string mAddress;
    pid_t mPid = -1;  // of the bus
};

}  // namespace qoz::host
