// The desk machine, switched on for one run: properties, log, trace, service and faults as the
// options ask, and everything off again at the end.
#pragma once

#include "Console.h"
#include "Options.h"

#include <host/control.h>

#include <optional>

namespace qozplay {

class Desk {
  public:
    // Throws BadInput for a property that makes no sense.
    Desk(const Options& options, Console& console);
    ~Desk();

    Desk(const Desk&) = delete;
    Desk& operator=(const Desk&) = delete;

    // Throws SessionFailed when the trace cannot be written.
    void saveTrace(const std::string& path);

  private:
    qoz::host::LogSink mOldSink;
    std::optional<qoz::host::VppService> mService;
};

}  // namespace qozplay
