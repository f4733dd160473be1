// SPDX-License-Identifier: Apache-2.0
// The player's entry point, for main() and for tests.
#pragma once

#include "qozplay/cli/Console.h"
#include "qozplay/media/StopRequest.h"

namespace qozplay {

// Runs the player with these arguments and returns the exit code: 0 if every frame and buffer was
// returned as expected, 1 if a session failed, 2 if the input or an option cannot be used, and 128
// plus the number of the signal if `stop` was requested. Reports failures on `console` and throws
// no exception.
int play(int argc, const char* const argv[], Console& console, const StopRequest& stop);

}  // namespace qozplay
