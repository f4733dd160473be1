// SPDX-License-Identifier: Apache-2.0
// Reconfiguring a session for another source size or upscale ratio. Private to src/.
#pragma once

#include <cstdint>

#include "base/Log.h"
#include "stream/Ports.h"
#include "stream/ServiceEvents.h"

namespace android {

// Recomputes both ports and reconfigures the session to match. Runs on the client's thread while
// the gate for output buffers is closed.
class Reconfiguration {
  public:
    Reconfiguration(Ports& ports, ServiceEvents& events, ServiceCalls& service,
                    const SessionLog& log)
        : mPorts(ports), mEvents(events), mService(service), mLog(log) {}

    // Returns true if the service has reconfigured the session. An unsupported source format or a
    // missing session changes nothing. After any other failure the new sizes stay in effect in the
    // component.
    bool run(uint32_t width, uint32_t height, uint32_t format, WaitBudget& waits);

  private:
    Ports& mPorts;
    ServiceEvents& mEvents;
    ServiceCalls& mService;
    const SessionLog& mLog;
};

}  // namespace android
