// SPDX-License-Identifier: Apache-2.0
// qoz-vppd: the VPP service in a process of its own, for clients on the session bus. The process
// ends on SIGTERM and SIGINT, when the connection to the bus ends, and when a fault kills the
// service.
#include <android/binder_process.h>
#include <host/control.h>
#include <sys/resource.h>
#include <unistd.h>

#include <chrono>
#include <csignal>
#include <cstdio>
#include <stdexcept>
#include <string>
#include <vector>

#include "host/vppd/Names.h"
#include "host/vppd/ServiceObject.h"

namespace {

using namespace qoz::host;

// Blocks SIGTERM and SIGINT and returns them. All threads that are created later inherit this, so
// that the signals are delivered to sigwait().
sigset_t blockTermination() {
    sigset_t signals;
    sigemptyset(&signals);
    sigaddset(&signals, SIGTERM);
    sigaddset(&signals, SIGINT);
    pthread_sigmask(SIG_BLOCK, &signals, nullptr);
    return signals;
}

// Ends the process in the same way as a signal from outside.
void end() {
    kill(getpid(), SIGTERM);
}

// Arms the faults on the command line. If one is not valid, prints an error and returns false.
bool armFaults(const std::vector<std::string>& args) {
    for (size_t i = 0; i < args.size(); i += 2) {
        std::string error = "usage: qoz-vppd [--fault OPERATION=ANSWER[@N[+]]]...";
        std::optional<Fault> fault;
        if (args[i] == "--fault" && i + 1 < args.size()) fault = parseFault(args[i + 1], &error);
        if (!fault) {
            fprintf(stderr, "qoz-vppd: %s\n", error.c_str());
            return false;
        }
        armFault(*fault);
    }
    return true;
}

// Raises the limit for descriptors as far as possible, because every client sends descriptors.
void raiseDescriptorLimit() {
    rlimit files{};
    if (getrlimit(RLIMIT_NOFILE, &files) != 0) return;
    files.rlim_cur = files.rlim_max;
    setrlimit(RLIMIT_NOFILE, &files);
}

// Serves clients until a signal arrives. The object is on the bus before the service has its name,
// so that the first client finds it.
void serve(const sigset_t& signals) {
    const auto bus = std::make_shared<vppd::Bus>(std::string());
    const vppservice::RegisteredService service(end);
    vppd::ServiceObject object(bus, service.service());
    bus->start(end);
    if (!bus->takeName(vppd::kBusName, std::chrono::steady_clock::now() + vppd::kCallLimit)) {
        throw std::runtime_error(std::string("the bus does not assign the name ") + vppd::kBusName +
                                 ": is another service running?");
    }
    int signal = 0;
    sigwait(&signals, &signal);
}

}  // namespace

int main(int argc, char* argv[]) {
    const sigset_t signals = blockTermination();
    signal(SIGPIPE, SIG_IGN);  // continue if the reader of standard error has ended
    if (!armFaults({argv + 1, argv + argc})) return 2;
    raiseDescriptorLimit();
    ABinderProcess_startThreadPool();
    try {
        serve(signals);
        return 0;
    } catch (const std::exception& error) {
        fprintf(stderr, "qoz-vppd: %s\n", error.what());
        return 1;
    }
}
