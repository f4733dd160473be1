// SPDX-License-Identifier: Apache-2.0
// Starting a session. Private to src/.
#pragma once

#include <cstdint>
#include <mutex>

#include "base/Log.h"
#include "base/SessionStatus.h"
#include "stream/FrcAisControl.h"
#include "stream/Ports.h"
#include "vpp/ServiceCalls.h"

namespace android {

// Starts a session with the current settings. Runs on the worker for a start that config()
// requested, or on the thread of an output buffer if the session has not been started. The gate for
// output buffers is closed in both cases, so that only one start runs at a time.
class SessionStart {
  public:
    SessionStart(const StreamSettings& settings, FrcAisControl& control, Ports& ports,
                 ServiceCalls& service, SessionStatus& status, std::mutex& lock,
                 const SessionLog& log)
        : mSettings(settings),
          mControl(control),
          mPorts(ports),
          mService(service),
          mStatus(status),
          mLock(lock),
          mLog(log) {}

    // Returns true if the session is ACTIVE. Returns false on failure: the state is ERROR if
    // frame-rate conversion or upscaling could not be set, and unchanged otherwise. Discards the
    // segments and the output time that the previous start left. If it fails, a session that runs
    // already goes on, with its old ports unless the service has refused the new ones.
    bool start(uint32_t width, uint32_t height, uint32_t format) EXCLUDES(mLock);

    // Called when a start has failed: makes the getters report the ports of a session that goes on.
    void announceSessionPorts();

  private:
    // The steps of start() up to ACTIVE.
    bool begin(uint32_t width, uint32_t height, uint32_t format) EXCLUDES(mLock);
    // Sets the service's control for the current mode: upscaling or frame-rate conversion.
    bool configControl();
    // Sets the layout of both ports and opens the session.
    bool openPorts();

    const StreamSettings& mSettings;
    FrcAisControl& mControl;
    Ports& mPorts;
    ServiceCalls& mService;
    SessionStatus& mStatus;
    std::mutex& mLock;  // the component's lock, which serialises state changes
    const SessionLog& mLog;
};

}  // namespace android
