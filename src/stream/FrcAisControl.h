// SPDX-License-Identifier: Apache-2.0
// What the service is told of frame-rate conversion and upscaling. Private to src/.
#pragma once

#include <aidl/vendor/vuq/hardware/vpp/VppCtrlFrcSegment.h>

#include <atomic>
#include <cstdint>
#include <vector>

#include "base/Log.h"
#include "stream/StreamSettings.h"
#include "vpp/ServiceCalls.h"

namespace android {

// Owns the list of frame-rate segments, each in force from a timestamp (microseconds) on, and which
// of them new settings are written into. Belongs to the thread that runs the stream; the timestamp
// of the last output is written by binder threads.
class FrcAisControl {
  public:
    using Segments = std::vector<vpp::VppCtrlFrcSegment>;

    FrcAisControl(Segments& segments, std::atomic<uint64_t>& lastOutputTimestamp,
                  const StreamSettings& settings, ServiceCalls& service, const SessionLog& log)
        : mSegments(segments),
          mLastOutputTimestamp(lastOutputTimestamp),
          mSettings(settings),
          mService(service),
          mLog(log) {}

    // Forgets all segments but the one that a start sends, and how far the output had come.
    void restart();

    // Makes sure that one more segment needs no memory; throws std::bad_alloc.
    void reserveSegment();

    // Writes the settings into a segment that starts at `timestamp` (microseconds; 0: the first
    // segment) and sends the list. True when the service took it.
    bool configFrc(uint64_t timestamp);

    // Sets upscaling to twice the size without frame-rate conversion. True when the service took
    // it.
    bool configAis();

  private:
    // The segment that settings from `timestamp` on are written into.
    vpp::VppCtrlFrcSegment& chooseSegment(uint64_t timestamp);

    Segments& mSegments;
    std::atomic<uint64_t>& mLastOutputTimestamp;
    const StreamSettings& mSettings;
    ServiceCalls& mService;
    const SessionLog& mLog;
};

}  // namespace android
