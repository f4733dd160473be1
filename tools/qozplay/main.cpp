#include "qozplay/run/Player.h"

#include <csignal>
#include <iostream>

#include <unistd.h>

int main(int argc, char* argv[]) {
    // The writer notices a reader that has gone, and ends the session in good order.
    std::signal(SIGPIPE, SIG_IGN);
    qozplay::Console console(std::cout, std::cerr, isatty(STDERR_FILENO) != 0);
    return qozplay::play(argc, argv, console);
}
