// SPDX-License-Identifier: Apache-2.0
// Running a session at another source size or upscale ratio. Private to src/.
#pragma once

#include <cstdint>

#include "base/Log.h"
#include "stream/Ports.h"
#include "stream/ServiceEvents.h"

namespace android {

// Computes both ports anew and has the service take them. Runs on the client's thread with
// the gate for output buffers closed.
class Reconfiguration {
  public:
    Reconfiguration(Ports& ports, ServiceEvents& events, ServiceCalls& service,
                    const SessionLog& log)
        : mPorts(ports), mEvents(events), mService(service), mLog(log) {}

    // True when the service has reconfigured. A source format that is not supported changes
    // nothing; any other failure leaves the new sizes in force here.
    bool run(uint32_t width, uint32_t height, uint32_t format, WaitBudget& waits);

  private:
    Ports& mPorts;
    ServiceEvents& mEvents;
    ServiceCalls& mService;
    const SessionLog& mLog;
};

}  // namespace android
