// The host simulator, switched on for one run: properties, log, trace, service and faults as the
// options ask, and everything off again at the end.
#pragma once

#include "qozplay/cli/Console.h"
#include "qozplay/cli/Options.h"

#include <host/control.h>

#include <cstdint>
#include <memory>

namespace qozplay {

class Simulator {
  public:
    // Throws BadInput for a property that makes no sense or a service that cannot be had.
    Simulator(const Options& options, Console& console);
    ~Simulator();

    Simulator(const Simulator&) = delete;
    Simulator& operator=(const Simulator&) = delete;

    // Components made from now on dump what they work on, vectors as well. Throws BadInput.
    void dumpInto(const std::string& folder);

    // Throws SessionFailed when the trace cannot be written.
    void saveTrace(const std::string& path);

    // The service has died under the sessions: what it holds does not come back. Any thread.
    bool serviceDied() const;

    // Here and in the service's process.
    uint64_t faultsFired() const;

    // Inline, or a process.
    class Service {
      public:
        virtual ~Service() = default;
        virtual bool died() const = 0;
        virtual uint64_t faultsFired() const = 0;
    };

  private:
    qoz::host::LogSink mOldSink;
    std::unique_ptr<Service> mService;
};

}  // namespace qozplay
