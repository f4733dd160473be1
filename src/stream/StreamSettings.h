// SPDX-License-Identifier: Apache-2.0
// The settings of a stream: what ConfigParams mean. Private to src/.
#pragma once

#include <qoz/ClientTypes.h>

#include <cstdint>

#include "base/Log.h"
#include "base/StreamFacts.h"

namespace android {

// Owns the rules by which settings become members. Belongs to the thread that runs the stream: the
// client's, and the worker's while it carries out a start.
class StreamSettings {
  public:
    // The component's members that settings decide.
    struct Members {
        bool& aisEnabled;
        uint32_t& outBufReqsPerFrame;
        uint32_t& interpFactor;
        bool& mvEnabled;
        bool& dsEnabled;
        bool& doubleOutput;
        uint32_t& upscaleIndex;
        float& upscaleRatio;
    };
    // What a set of new settings changes.
    struct Changes {
        bool outBufReqs = false;
        bool interpolation = false;
        bool upscale = false;
        bool any() const { return outBufReqs || interpolation || upscale; }
    };

    StreamSettings(const Members& members, const SessionLog& log, PublishedFacts& facts)
        : m(members), mLog(log), mFacts(facts) {}

    // Output buffers that one source frame needs; records whether upscaling goes with frame-rate
    // conversion.
    uint32_t adoptOutBufReqs(const ConfigParams& params);
    static uint32_t outBufReqs(const ConfigParams& params);

    // All of them, as config() takes them.
    void adoptAll(const ConfigParams& params);

    // Those that a frame carries. The first says what would change and changes nothing.
    Changes changesBy(const ConfigParams& params) const;
    void adoptInBand(const ConfigParams& params, const Changes& changes);

    // Has the getters and dump() answer for the settings that are stored now.
    void publish();

    bool motionVectors() const { return m.mvEnabled; }
    bool downscaledCopies() const { return m.dsEnabled; }
    bool doubleOutput() const { return m.doubleOutput; }
    uint32_t interpFactor() const { return m.interpFactor; }
    // The side of the output port, in pixels, that belongs to this side of the input port.
    uint32_t scaledSide(uint32_t side) const;

  private:
    // A change of the ratio alone.
    void adoptUpscaleInBand(uint32_t upscaleIndex);

    const Members m;
    const SessionLog& mLog;
    PublishedFacts& mFacts;
};

}  // namespace android
