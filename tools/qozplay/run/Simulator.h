// SPDX-License-Identifier: Apache-2.0
// The host simulator as a run of the player uses it.
#pragma once

#include <host/control.h>

#include <cstdint>
#include <filesystem>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "qozplay/cli/Console.h"
#include "qozplay/cli/Options.h"
#include "qozplay/run/Ending.h"

namespace qozplay {

// Configures the host simulator for one run: sets the properties, the log and the trace, arms the
// faults, and starts the service, all by the options. The destructor ends the service and resets
// the properties, the faults and the log. These settings belong to the process, so at most one
// object may exist at a time. The player's thread creates and destroys it.
class Simulator {
  public:
    // Throws BadInput for a property that cannot be set, for a folder that cannot be made, and if
    // the player was built without the service process. Throws SessionFailed if that process does
    // not start.
    Simulator(const Options& options, Console& console);

    Simulator(const Simulator&) = delete;
    Simulator& operator=(const Simulator&) = delete;

    // Makes components that are created from now on write a frame dump of this source frame and the
    // next one, including motion vectors; without a frame they write none. Throws BadInput. With a
    // frame, there must be a temporary folder, as there is with --vectors.
    void dump(std::optional<uint64_t> frame);

    // The temporary folder, which receives the frame dumps; empty if the run needs none.
    std::filesystem::path folder() const { return mFolder ? mFolder->path() : ""; }

    // Returns true if the service has died, so that it will not return the buffers that it holds.
    // Any thread may call this.
    bool serviceDied() const;

    // The number of times that faults fired, in this process and in the service's, and the texts of
    // the armed faults that never fired.
    uint64_t faultsFired() const;
    std::vector<std::string> unfiredFaults() const;

    // The running service, inline or in its own process. It ends when `running` is released.
    struct Service {
        std::shared_ptr<void> running;
        std::function<bool()> died;
        std::function<uint64_t()> faultsFired;
    };

  private:
    // Replaces the log sink. The destructor restores it, disarms all faults and clears all
    // properties.
    struct Settings {
        explicit Settings(qoz::host::LogSink sink) : old(qoz::host::setLogSink(std::move(sink))) {}
        ~Settings();
        Settings(const Settings&) = delete;
        Settings& operator=(const Settings&) = delete;
        qoz::host::LogSink old;
    };

    const Settings mSettings;
    // For the frame dumps and for the files of the service process; empty if the run has neither.
    std::optional<TemporaryFolder> mFolder;
    std::vector<qoz::host::Fault> mRemoteFaults;  // armed in the service's process
    Service mService;
};

}  // namespace qozplay
