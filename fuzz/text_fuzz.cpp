// SPDX-License-Identifier: Apache-2.0
// Fuzzes the parsers of texts: property files, faults, and changes of a running stream.
#include <host/control.h>
#include <qoz/VppComponent.h>
#include <qozplay/media/Types.h>
#include <qozplay/stream/ChangeSchedule.h>

#include <stdexcept>
#include <string>

#include "support.h"

namespace {

void parseChange(const std::string& text) {
    try {
        (void)qozplay::parseChange(text);
    } catch (const qozplay::BadInput&) {
    }
}

// The text of a parsed fault must parse to the same fault.
void parseFault(const std::string& text) {
    std::string error;
    const auto fault = qoz::host::parseFault(text, &error);
    if (!fault) return;
    const std::string written = qoz::host::toText(*fault);
    const auto again = qoz::host::parseFault(written, &error);
    if (!again || qoz::host::toText(*again) != written) abort();
}

// Constructs a component, which reads numeric properties. It may throw if a value is not a number.
void construct() {
    qoz::host::setLogSink([](const qoz::host::LogLine&) {});
    try {
        const android::VppComponent component;
    } catch (const std::logic_error&) {
    }
}

}  // namespace

// The first byte chooses the parser.
extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    if (size < 1) return 0;
    const std::string text(reinterpret_cast<const char*>(data) + 1, size - 1);
    switch (data[0] % 4) {
        case 0:
            parseFault(text);
            break;
        case 1:
            parseChange(text);
            break;
        case 2: {
            std::string error;
            const qoz::fuzz::MemoryFile file(data + 1, size - 1);
            (void)qoz::host::loadProperties(file.path(), &error);
            construct();
            qoz::host::clearProperties();
            break;
        }
        default:
            qoz::host::setProperty("vendor.qoz.log.msg", text);
            construct();
    }
    return 0;
}
