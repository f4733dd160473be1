#include "qozplay/run/Ending.h"
#include "qozplay/run/Player.h"

#include <unistd.h>

#include <csignal>
#include <iostream>

int main(int argc, char* argv[]) {
    qozplay::endPlainly();
    // The writer notices a reader that has gone, and ends the session in good order.
    std::signal(SIGPIPE, SIG_IGN);
    qozplay::StopRequest stop;
    qozplay::stopOnSignals(stop);
    qozplay::Console console(std::cout, std::cerr, isatty(STDERR_FILENO) != 0);
    return qozplay::play(argc, argv, console, stop);
}
