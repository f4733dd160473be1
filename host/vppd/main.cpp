// SPDX-License-Identifier: Apache-2.0
// qoz-vppd: the VPP service in a process of its own, for the clients of the session's bus. Ends on
// SIGTERM, on SIGINT, with the bus, and when an injected fault kills the service.
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

// Every thread inherits this, so that the signals wait for who asks for them.
sigset_t blockEndSignals() {
    sigset_t signals;
    sigemptyset(&signals);
    sigaddset(&signals, SIGTERM);
    sigaddset(&signals, SIGINT);
    pthread_sigmask(SIG_BLOCK, &signals, nullptr);
    return signals;
}

void end() {
    kill(getpid(), SIGTERM);
}

// False: the command line is no good.
bool armFaults(const std::vector<std::string>& args) {
    for (size_t i = 0; i < args.size(); i += 2) {
        std::string error = "usage: qoz-vppd [--fault OP=CODE@N]...";
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

// Clients hand descriptors over, and each may hand over many: as many as the process may have.
void raiseDescriptorLimit() {
    rlimit files{};
    if (getrlimit(RLIMIT_NOFILE, &files) != 0) return;
    files.rlim_cur = files.rlim_max;
    setrlimit(RLIMIT_NOFILE, &files);
}

void serve(const sigset_t& signals) {
    const auto bus = std::make_shared<vppd::Bus>(std::string());
    const vppservice::RegisteredService service(end);
    vppd::ServiceObject object(bus, service.service());
    bus->start(end);
    if (!bus->takeName(vppd::kBusName, std::chrono::steady_clock::now() + vppd::kCallLimit)) {
        throw std::runtime_error("the name of the service cannot be had");
    }
    int signal = 0;
    sigwait(&signals, &signal);
}

}  // namespace

int main(int argc, char* argv[]) {
    const sigset_t signals = blockEndSignals();
    signal(SIGPIPE, SIG_IGN);  // the end of whoever reads our messages is not ours
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
