// SPDX-License-Identifier: Apache-2.0
#include <unistd.h>

#include <iostream>

#include "qozplay/run/Ending.h"
#include "qozplay/run/Player.h"

// The order matters: no file may be opened before the standard streams are held, and no thread may
// be created before the signals are set up.
int main(int argc, char* argv[]) {
    qozplay::holdStandardStreams();
    qozplay::endPlainly();
    qozplay::StopRequest stop;
    qozplay::stopOnSignals(stop);
    qozplay::Console console(std::cout, std::cerr, isatty(STDERR_FILENO) != 0);
    return qozplay::play(argc, argv, console, stop);
}
