#include "Desk.h"

#include <android/log.h>

#include <array>
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
    if (options.log) set("vendor.qoz.log.msg", "21");
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

qoz::host::LogSink sinkTo(Console& console, bool everything) {
    return [&console, everything](const LogLine& line) {
        if (!everything && line.priority < ANDROID_LOG_ERROR) return;
        constexpr std::array kLetters{'?', '?', 'V', 'D', 'I', 'W', 'E', 'F', 'S'};
        const auto priority = static_cast<size_t>(line.priority);
        const char letter = priority < kLetters.size() ? kLetters[priority] : '?';
        console.report(format("%c %s: %s", letter, line.tag.c_str(), line.text.c_str()));
    };
}

}  // namespace

Desk::Desk(const Options& options, Console& console) {
    setProperties(options);
    mOldSink = qoz::host::setLogSink(sinkTo(console, options.log));
    if (!options.trace.empty()) qoz::host::startTrace();
    mService.emplace();
    for (const qoz::host::Fault& fault : options.faults) {
        qoz::host::armFault(fault);
    }
}

Desk::~Desk() {
    mService.reset();
    qoz::host::clearFaults();
    qoz::host::clearProperties();
    qoz::host::setLogSink(std::move(mOldSink));
}

void Desk::saveTrace(const std::string& path) {
    if (!qoz::host::stopTrace(path)) throw SessionFailed("cannot write " + path);
}

}  // namespace qozplay
