// SPDX-License-Identifier: Apache-2.0
// The whole run: what main() does, for main() and for tests.
#pragma once

#include "qozplay/cli/Console.h"
#include "qozplay/media/StopRequest.h"

namespace qozplay {

// Exit code: 0 everything came through, 1 a session failed, 2 the input cannot be used; 128 and the
// signal's number when `stop` was requested and the run has ended in order. Throws nothing.
int play(int argc, const char* const argv[], Console& console, const StopRequest& stop);

}  // namespace qozplay
