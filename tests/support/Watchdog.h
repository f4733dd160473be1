// SPDX-License-Identifier: Apache-2.0
// Ends a test that hangs, and says where every thread of it stands.
#pragma once

namespace qoz::test {

// From construction to destruction, or from the last feed() on, the process has a minute (two under
// a sanitizer). Then every thread prints its stack and the process aborts. One at a time.
class Watchdog {
  public:
    Watchdog();
    ~Watchdog();

    Watchdog(const Watchdog&) = delete;
    Watchdog& operator=(const Watchdog&) = delete;

    static void feed();
};

}  // namespace qoz::test
