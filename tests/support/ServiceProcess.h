// SPDX-License-Identifier: Apache-2.0
// The service process on a private bus, for tests that send it signals.
#pragma once

#include <host/vppd/PrivateBus.h>

#include <chrono>
#include <stdexcept>

#include "support/Sanitized.h"

namespace qoz::test {

// The greatest time from the death of the service until its clients have been told and their
// operations have ended. It is below the three seconds that an operation waits for a missing
// answer, so that no operation may have waited for the dead service.
constexpr std::chrono::milliseconds kLongestEnd{kSanitized ? 2500 : 1000};

// Returns the process id of the service. Throws, which ends the test as failed, if the service is
// not running: kill() would take 0 and negative numbers for many processes.
inline pid_t servicePidOf(const host::PrivateBus& bus) {
    const pid_t pid = bus.servicePid().value_or(-1);
    if (pid <= 0) throw std::runtime_error("there is no service process");
    return pid;
}

}  // namespace qoz::test
