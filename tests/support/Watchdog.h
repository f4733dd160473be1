// SPDX-License-Identifier: Apache-2.0
// Aborts a test that hangs and prints the stack of every thread.
#pragma once

namespace qoz::test {

// Limits the time from construction, or from the last feed(), to destruction to one minute (two
// under a sanitizer). When the time is up, every thread prints its stack and the process aborts.
// Only one watchdog may exist at a time.
class Watchdog {
  public:
    Watchdog();
    ~Watchdog();

    Watchdog(const Watchdog&) = delete;
    Watchdog& operator=(const Watchdog&) = delete;

    static void feed();
};

}  // namespace qoz::test
