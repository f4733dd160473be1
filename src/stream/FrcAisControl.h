// SPDX-License-Identifier: Apache-2.0
// The frame-rate-conversion and upscaling controls that are sent to the service. Private to src/.
#pragma once

#include <aidl/vendor/vuq/hardware/vpp/VppCtrlFrcSegment.h>

#include <atomic>
#include <cstdint>
#include <vector>

#include "base/Log.h"
#include "stream/StreamSettings.h"
#include "vpp/ServiceCalls.h"

namespace android {

// Owns the list of frame-rate segments and decides which segment new settings are written to. A
// segment takes effect at its start timestamp (microseconds). Used only by the thread that runs the
// stream (see StreamSettings), except for the timestamp of the last output, which binder threads
// write.
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

    // Keeps only the first segment, which a start rewrites and sends, and resets the timestamp of
    // the last output to 0.
    void restart();

    // Reserves memory, so that adding one more segment cannot fail. Throws std::bad_alloc.
    void reserveSegment();

    // Writes the settings to a segment that starts at `timestamp` (microseconds; 0 selects the
    // first segment) and sends the list. Returns true if the service accepted it.
    bool configFrc(uint64_t timestamp);

    // Sets upscaling to twice the size without frame-rate conversion. Returns true if the service
    // accepted it.
    bool configAis();

  private:
    // Returns the segment to write settings to that take effect at `timestamp`.
    vpp::VppCtrlFrcSegment& chooseSegment(uint64_t timestamp);

    Segments& mSegments;
    std::atomic<uint64_t>& mLastOutputTimestamp;
    const StreamSettings& mSettings;
    ServiceCalls& mService;
    const SessionLog& mLog;
};

}  // namespace android
