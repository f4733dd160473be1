// SPDX-License-Identifier: Apache-2.0
#include "qozplay/run/Simulator.h"

#include <android/log.h>

#include "client/LiveClient.h"
#ifdef QOZ_SERVICE_PROCESS
#include <host/vppd/PrivateBus.h>
#include <host/vppd/RemoteService.h>
#endif

#include <algorithm>
#include <array>
#include <string_view>
#include <utility>

namespace qozplay {
namespace {

using qoz::host::LogLine;

void set(const std::string& name, const std::string& value) {
    if (!qoz::host::setProperty(name, value)) {
        throw BadInput("--prop " + name + "=" + value +
                       ": not the name of a property, or a value of more than 91 characters");
    }
}

// Sets the properties that other options imply, and then those of --prop, so that --prop can
// override them.
void setProperties(const Options& options) {
    if (options.log.wantsDiagnostics()) set("vendor.qoz.log.msg", "21");
    if (!options.trace.empty()) set("debug.atrace.tags.enableflags", "2");
    if (!options.motionVectors) set("debug.vpp.frc.game.ext.mbi", "false");
    for (const auto& [name, value] : options.properties) {
        set(name, value);
    }
}

// Returns a log sink that writes the lines that the filter lets through to the console. A line that
// repeats the previous one is not shown, and a note replaces the first such line: a service without
// memory, for example, writes the same line for every frame. The simulator calls a sink for one
// line at a time, so the sink needs no lock for its state.
qoz::host::LogSink sinkTo(Console& console, const LogFilter& filter) {
    return [&console, filter, last = std::string(), again = false](const LogLine& line) mutable {
        if (!filter.shows(line.priority, line.tag)) return;
        const bool same = std::exchange(last, line.text) == line.text;
        if (same && !again) console.report("(the same again, which is said once only)");
        again = same;
        if (same) return;
        constexpr std::array kLetters{'?', '?', 'V', 'D', 'I', 'W', 'E', 'F', 'S'};
        const auto priority = static_cast<size_t>(line.priority);
        const char letter = priority < kLetters.size() ? kLetters[priority] : '?';
        console.report(format("%c %s: %s", letter, line.tag.c_str(), line.text.c_str()));
    };
}

Simulator::Service startInline() {
    return {std::make_shared<qoz::host::VppService>(),
            [] { return !qoz::client::LiveClient::serviceLives(); },  // an injected fault killed it
            [] { return uint64_t{0}; }};
}

// Returns true for a fault in the converter or an allocation, which always takes place in this
// process. All other operations are those of the service.
bool isOurs(const qoz::host::Fault& fault) {
    constexpr std::array<std::string_view, 6> kOurs{"Configure",          "RGBToNV12",
                                                    "MvBufferGeneration", "GetMVbufferSize",
                                                    "allocate",           "native_handle_create"};
    return std::ranges::find(kOurs, fault.operation) != kOurs.end();
}

#ifdef QOZ_SERVICE_PROCESS
// A service process with the bus on which it is registered. The order of the members makes the bus
// exist for as long as the service's connection to it.
struct ServiceProcess {
    ServiceProcess(const std::vector<std::string>& arguments, const std::filesystem::path& folder)
        : bus(arguments, folder), service(bus.address()) {}

    qoz::host::PrivateBus bus;
    qoz::host::RemoteVppService service;
};

// Starts the service in its own process, which arms the faults. The files of its bus are made in
// `folder`.
Simulator::Service startProcess(const std::vector<qoz::host::Fault>& faults,
                                const std::filesystem::path& folder) {
    std::vector<std::string> arguments;
    for (const qoz::host::Fault& fault : faults) {
        arguments.insert(arguments.end(), {"--fault", qoz::host::toText(fault)});
    }
    try {
        const auto process = std::make_shared<ServiceProcess>(arguments, folder);
        const qoz::host::RemoteVppService& service = process->service;
        return {process, [&service] { return service.deaths() != 0; },
                [&service] { return service.faultsFired(); }};
    } catch (const std::exception& error) {
        throw SessionFailed("--service process: " + plainly(error));
    }
}
#else
Simulator::Service startProcess(const std::vector<qoz::host::Fault>&,
                                const std::filesystem::path&) {
    throw BadInput("--service process: this player was built without D-Bus");
}
#endif

}  // namespace

Simulator::Simulator(const Options& options, Console& console)
    : mSettings(sinkTo(console, options.log)) {
    if (options.serviceProcess() || !options.vectors.empty()) mFolder.emplace();
    setProperties(options);
    if (!options.trace.empty()) qoz::host::startTrace();
    for (const qoz::host::Fault& fault : options.faults) {
        if (options.serviceProcess() && !isOurs(fault)) {
            mRemoteFaults.push_back(fault);
        } else {
            qoz::host::armFault(fault);
        }
    }
    mService =
        options.serviceProcess() ? startProcess(mRemoteFaults, mFolder->path()) : startInline();
}

Simulator::Settings::~Settings() {
    qoz::host::clearFaults();
    qoz::host::clearProperties();
    qoz::host::setLogSink(std::move(old));
}

void Simulator::dump(std::optional<uint64_t> frame) {
    const char* on = frame ? "true" : "false";
    set("vendor.qoz.dump.enable", on);
    set("vendor.qoz.dump.mv.enable", on);
    if (!frame) return;
    set("debug.qoz.dump.dir", mFolder->path());
    set("debug.qoz.dump.frames", format("%llu-%llu", big(*frame), big(*frame + 1)));
}

bool Simulator::serviceDied() const {
    return mService.died();
}

uint64_t Simulator::faultsFired() const {
    return qoz::host::faultsFired() + mService.faultsFired();
}

// The service process reports only how many times its faults have fired. They are therefore listed
// as unfired only if none of them has fired, and not if the process has died, because then the
// number is lost.
std::vector<std::string> Simulator::unfiredFaults() const {
    std::vector<qoz::host::Fault> unfired = qoz::host::unfiredFaults();
    if (mService.faultsFired() == 0 && !serviceDied()) {
        unfired.insert(unfired.end(), mRemoteFaults.begin(), mRemoteFaults.end());
    }
    std::vector<std::string> texts;
    texts.reserve(unfired.size());
    for (const qoz::host::Fault& fault : unfired) {
        texts.push_back(qoz::host::toText(fault));
    }
    return texts;
}

}  // namespace qozplay
