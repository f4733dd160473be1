// SPDX-License-Identifier: Apache-2.0
// The host simulator, switched on for one run: properties, log, trace, service and faults as the
// options ask, and everything off again at the end. One at a time in a process, as these are
// settings of the process; made and ended on the player's thread.
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

class Simulator {
  public:
    // Throws BadInput for a property that makes no sense or a service that cannot be had.
    Simulator(const Options& options, Console& console);

    Simulator(const Simulator&) = delete;
    Simulator& operator=(const Simulator&) = delete;

    // Components made from now on dump what they work on of this frame and the next, vectors as
    // well; none: they dump nothing. Throws BadInput.
    void dump(std::optional<uint64_t> frame);

    // Where to; empty when nobody wants dumps.
    std::filesystem::path folder() const { return mFolder ? mFolder->path() : ""; }

    // The service has died under the sessions: what it holds does not come back. Any thread.
    bool serviceDied() const;

    // Here and in the service's process. Those that never fired are told by the text of each.
    uint64_t faultsFired() const;
    std::vector<std::string> unfiredFaults() const;

    // Inline, or a process: what runs, and the answers to two questions about it.
    struct Service {
        std::shared_ptr<void> running;
        std::function<bool()> died;
        std::function<uint64_t()> faultsFired;
    };

  private:
    // Settings of the process; restores them.
    struct Settings {
        explicit Settings(qoz::host::LogSink sink) : old(qoz::host::setLogSink(std::move(sink))) {}
        ~Settings();
        Settings(const Settings&) = delete;
        Settings& operator=(const Settings&) = delete;
        qoz::host::LogSink old;
    };

    const Settings mSettings;
    std::optional<TemporaryFolder> mFolder;  // for what lasts as long as the run; only on demand
    std::vector<qoz::host::Fault> mRemoteFaults;  // armed in the service's process
    Service mService;
};

}  // namespace qozplay
