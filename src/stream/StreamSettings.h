// SPDX-License-Identifier: Apache-2.0
// The settings of a stream, derived from ConfigParams. Private to src/.
#pragma once

#include <qoz/ClientTypes.h>

#include <cstdint>

#include "base/Log.h"
#include "base/StreamFacts.h"

namespace android {

// Owns the rules that translate ConfigParams into members of the component. Used only by the thread
// that runs the stream. That is the client's thread, except during a start, which runs on the
// worker or on the thread of the output buffer that starts the session.
class StreamSettings {
  public:
    // The members of the component that the settings determine.
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
    // Which settings new parameters change.
    struct Changes {
        bool outBufReqs = false;
        bool interpolation = false;
        bool upscale = false;
        bool any() const { return outBufReqs || interpolation || upscale; }
    };

    StreamSettings(const Members& members, const SessionLog& log, PublishedFacts& facts)
        : m(members), mLog(log), mFacts(facts) {}

    // Returns the number of output buffers that one source frame requires, and stores whether
    // frame-rate conversion is combined with upscaling. Any thread may call it.
    uint32_t adoptOutBufReqs(const ConfigParams& params);

    // Stores all settings that are given to config().
    void adoptAll(const ConfigParams& params);

    // For settings carried by a frame: changesBy() returns what they would change, and
    // adoptInBand() stores them.
    Changes changesBy(const ConfigParams& params) const;
    void adoptInBand(const ConfigParams& params, const Changes& changes);

    // Publishes the stored settings to the getters and dump().
    void publish();

    bool motionVectors() const { return m.mvEnabled; }
    bool downscaledCopies() const { return m.dsEnabled; }
    bool doubleOutput() const { return m.doubleOutput; }
    uint32_t interpFactor() const { return m.interpFactor; }
    // Returns the side of the output port for a side of the input port, both in pixels.
    uint32_t scaledSide(uint32_t side) const;

  private:
    // Stores a change of the upscale ratio.
    void adoptUpscaleInBand(uint32_t upscaleIndex);

    const Members m;
    const SessionLog& mLog;
    PublishedFacts& mFacts;
};

}  // namespace android
