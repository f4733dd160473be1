// SPDX-License-Identifier: Apache-2.0
// A message bus of one's own, for one run: nobody else is on it, and it goes with the object.
#pragma once

#include <sys/types.h>

#include <filesystem>
#include <optional>
#include <string>
#include <vector>

namespace qoz::host {

// Starts `dbus-daemon` on a socket in a new folder under `parent`. The bus starts qoz-vppd, with
// these arguments, when its name is asked for. To be made on a thread that outlives it: with that
// thread, and so with a process that is killed, the bus ends too.
class PrivateBus {
  public:
    // An empty path is the program beside this one, or where the build leaves it. Throws
    // std::runtime_error when there is no bus to be had.
    explicit PrivateBus(
        const std::vector<std::string>& arguments = {},
        const std::filesystem::path& parent = std::filesystem::temp_directory_path(),
        std::string program = {});

    // The service's process ends with the bus; killed when it does not.
    ~PrivateBus();

    PrivateBus(const PrivateBus&) = delete;
    PrivateBus& operator=(const PrivateBus&) = delete;

    const std::string& address() const { return mAddress; }

    // Of the service; none while it does not run.
    std::optional<pid_t> servicePid() const;

  private:
    // Gone with its contents.
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
