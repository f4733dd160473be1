// SPDX-License-Identifier: Apache-2.0
#include <unistd.h>

#include <iostream>

#include "qozplay/run/Ending.h"
#include "qozplay/run/Player.h"

int main(int argc, char* argv[]) {
    qozplay::holdStandardStreams();
    qozplay::endPlainly();
    qozplay::StopRequest stop;
    qozplay::stopOnSignals(stop);
    qozplay::Console console(std::cout, std::cerr, isatty(STDERR_FILENO) != 0);
    return qozplay::play(argc, argv, console, stop);
}
