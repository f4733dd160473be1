// SPDX-License-Identifier: Apache-2.0
// The start of a session. Private to src/.
#pragma once

#include <cstdint>
#include <mutex>

#include "base/Log.h"
#include "base/SessionStatus.h"
#include "stream/FrcAisControl.h"
#include "stream/Ports.h"
#include "vpp/ServiceCalls.h"

namespace android {

// Turns the settings into a running session. Runs on the worker for a start that config() asked
// for, and on the thread of an output buffer that finds the session not started; a gate keeps
// those apart.
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

    // True: the session is ACTIVE. False leaves ERROR when frame-rate conversion or upscaling could
    // not be set, else the state as it was. The session's output starts anew: what the previous
    // start left of segments and output times is forgotten.
    bool start(uint32_t width, uint32_t height, uint32_t format) EXCLUDES(mLock);

  private:
    // Tells the service what it is to do with the frames: upscale, or convert the frame rate.
    bool configControl();
    // Tells the service the layout of both ports and opens the session.
    bool openPorts();

    const StreamSettings& mSettings;
    FrcAisControl& mControl;
    Ports& mPorts;
    ServiceCalls& mService;
    SessionStatus& mStatus;
    std::mutex& mLock;  // of the component: serialises changes of state
    const SessionLog& mLog;
};

}  // namespace android
