// The whole run: what main() does, for main() and for tests.
#pragma once

#include "qozplay/cli/Console.h"

namespace qozplay {

// Exit code: 0 everything came through, 1 a session failed, 2 the input cannot be used.
int play(int argc, const char* const argv[], Console& console);

}  // namespace qozplay
