// Texts from outside: properties files, faults, changes of a running stream.
#include <host/control.h>
#include <qoz/VppComponent.h>
#include <tools/qozplay/Basics.h>
#include <tools/qozplay/Script.h>

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

// A component reads the numeric properties, or cannot be constructed.
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
    std::string error;
    switch (data[0] % 4) {
        case 0:
            (void)qoz::host::parseFault(text, &error);
            break;
        case 1:
            parseChange(text);
            break;
        case 2: {
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
