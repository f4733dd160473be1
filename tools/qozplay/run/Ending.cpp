// SPDX-License-Identifier: Apache-2.0
#include "qozplay/run/Ending.h"

#include <fcntl.h>
#include <unistd.h>

#include <csignal>
#include <cstring>
#include <exception>
#include <memory>
#include <new>
#include <system_error>
#include <thread>
#include <utility>

#include "qozplay/media/Types.h"
#include "qozplay/run/TemporaryFolder.h"

namespace qozplay {
namespace {

// Freed when all memory is used up, for what still has to be done.
std::unique_ptr<char[]> gReserve;

void say(const char* text) {
    (void)!write(STDERR_FILENO, text, std::strlen(text));
}

[[noreturn]] void endNow() {
    gReserve.reset();
    say("qozplay: ");
    try {
        if (const auto current = std::current_exception()) std::rethrow_exception(current);
        say("ended without a reason given");
    } catch (const std::exception& error) {
        say(qozplay::plainly(error).c_str());
    } catch (...) {
        say("ended for an unknown reason");
    }
    say("\n");
    TemporaryFolder::removeForGood();
    _exit(1);
}

void waitForSignals(const sigset_t& signals, StopRequest& stop) {
    int signal = 0;
    sigwait(&signals, &signal);
    stop.request(signal);
    sigwait(&signals, &signal);
    TemporaryFolder::removeForGood();
    _exit(128 + signal);
}

}  // namespace

// A standard stream that the caller has closed would be the next file that is opened, and whoever
// writes to the stream would write into that file. In its place stands one that can do nothing:
// reading from it or writing to it is an error.
void holdStandardStreams() {
    for (const auto& [stream, wrongWay] :
         {std::pair(STDIN_FILENO, O_WRONLY), std::pair(STDOUT_FILENO, O_RDONLY),
          std::pair(STDERR_FILENO, O_RDONLY)}) {
        if (fcntl(stream, F_GETFD) < 0)
            (void)!open("/dev/null", wrongWay);  // takes the lowest free
    }
}

void endPlainly() {
    constexpr size_t kReserve = 1 << 18;  // bytes
    gReserve = std::make_unique<char[]>(kReserve);
    std::set_terminate(endNow);
}

void stopOnSignals(StopRequest& stop) {
    // The writer notices itself that a reader has gone or a file is as large as it may be.
    std::signal(SIGPIPE, SIG_IGN);
    std::signal(SIGXFSZ, SIG_IGN);
    sigset_t signals;
    sigemptyset(&signals);
    for (const int signal : {SIGINT, SIGTERM, SIGHUP})
        sigaddset(&signals, signal);
    pthread_sigmask(SIG_BLOCK, &signals, nullptr);
    try {
        std::thread([signals, &stop] { waitForSignals(signals, stop); }).detach();
    } catch (const std::system_error&) {  // then they end it at once, as they always did
        pthread_sigmask(SIG_UNBLOCK, &signals, nullptr);
    }
}

}  // namespace qozplay
