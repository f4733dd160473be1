#include "qozplay/run/Simulator.h"

#include <android/log.h>
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

// What the options stand for comes first, so that --prop has the last word.
void setProperties(const Options& options) {
    if (options.log.wantsDiagnostics()) set("vendor.qoz.log.msg", "21");
    if (!options.trace.empty()) set("debug.atrace.tags.enableflags", "2");
    if (!options.motionVectors) set("debug.vpp.frc.game.ext.mbi", "false");
    if (options.max) {
        set("vendor.qoz.maxw", std::to_string(options.max->width));
        set("vendor.qoz.maxh", std::to_string(options.max->height));
    }
    for (const auto& [name, value] : options.properties) {
        set(name, value);
    }
}

qoz::host::LogSink sinkTo(Console& console, const LogFilter& filter) {
    return [&console, filter](const LogLine& line) {
        if (!filter.shows(line.priority, line.tag)) return;
        constexpr std::array kLetters{'?', '?', 'V', 'D', 'I', 'W', 'E', 'F', 'S'};
        const auto priority = static_cast<size_t>(line.priority);
        const char letter = priority < kLetters.size() ? kLetters[priority] : '?';
        console.report(format("%c %s: %s", letter, line.tag.c_str(), line.text.c_str()));
    };
}

class InlineService final : public Simulator::Service {
  public:
    // An inline service dies of an injected fault only, and sessions end as they do then.
    bool died() const override { return false; }
    uint64_t faultsFired() const override { return 0; }

  private:
    qoz::host::VppService mService;
};

// What a fault breaks on this side; the rest is the service's.
bool isOurs(const qoz::host::Fault& fault) {
    constexpr std::array<std::string_view, 6> kOurs{"Configure",          "RGBToNV12",
                                                    "MvBufferGeneration", "GetMVbufferSize",
                                                    "allocate",           "native_handle_create"};
    return std::ranges::find(kOurs, fault.operation) != kOurs.end();
}

#ifdef QOZ_SERVICE_PROCESS
class ServiceProcess final : public Simulator::Service {
  public:
    explicit ServiceProcess(const std::vector<std::string>& faults)
        : mBus(faults), mService(mBus.address()) {}

    bool died() const override { return mService.deaths() != 0; }
    uint64_t faultsFired() const override { return mService.faultsFired(); }

  private:
    qoz::host::PrivateBus mBus;
    qoz::host::RemoteVppService mService;
};

std::unique_ptr<Simulator::Service> startProcess(const Options& options) {
    std::vector<std::string> arguments;
    for (const qoz::host::Fault& fault : options.faults) {
        if (isOurs(fault)) continue;
        arguments.insert(arguments.end(), {"--fault", qoz::host::toText(fault)});
    }
    try {
        return std::make_unique<ServiceProcess>(arguments);
    } catch (const std::exception& error) {
        throw BadInput(std::string("--service process: ") + error.what());
    }
}
#else
std::unique_ptr<Simulator::Service> startProcess(const Options&) {
    throw BadInput("--service process: this player was built without D-Bus");
}
#endif

}  // namespace

Simulator::Simulator(const Options& options, Console& console) {
    setProperties(options);
    mOldSink = qoz::host::setLogSink(sinkTo(console, options.log));
    if (!options.trace.empty()) qoz::host::startTrace();
    mService = options.serviceProcess ? startProcess(options) : std::make_unique<InlineService>();
    for (const qoz::host::Fault& fault : options.faults) {
        if (!options.serviceProcess || isOurs(fault)) qoz::host::armFault(fault);
    }
}

Simulator::~Simulator() {
    mService.reset();
    qoz::host::clearFaults();
    qoz::host::clearProperties();
    qoz::host::setLogSink(std::move(mOldSink));
}

void Simulator::dumpInto(const std::string& folder) {
    set("debug.qoz.dump.dir", folder);
    set("vendor.qoz.dump.enable", "true");
    set("vendor.qoz.dump.mv.enable", "true");
}

bool Simulator::serviceDied() const {
    return mService->died();
}

uint64_t Simulator::faultsFired() const {
    return qoz::host::faultsFired() + mService->faultsFired();
}

void Simulator::saveTrace(const std::string& path) {
    if (!qoz::host::stopTrace(path)) throw SessionFailed("cannot write " + path);
}

}  // namespace qozplay
