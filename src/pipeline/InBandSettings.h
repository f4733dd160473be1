// SPDX-License-Identifier: Apache-2.0
// Settings that source frames carry. Private to src/.
#pragma once

#include <qoz/ClientTypes.h>

#include <set>

#include "base/ClientCallback.h"
#include "base/Gate.h"
#include "base/Log.h"
#include "pipeline/Converter.h"
#include "pipeline/Flush.h"
#include "pipeline/HeldSlots.h"
#include "pipeline/SourceFrame.h"
#include "stream/FrcAisControl.h"
#include "stream/Ports.h"
#include "stream/Reconfiguration.h"
#include "stream/StreamSettings.h"

namespace android {

// Applies the settings of a source frame after the frame has been queued, so that they are in force
// from the next frame on, and notifies the client. Runs on the client's thread. On allocation
// failure no setting is stored without being applied.
class InBandSettings {
  public:
    struct Peers {
        StreamSettings& settings;
        FrcAisControl& control;
        Ports& ports;
        Reconfiguration& reconfiguration;
        Flush& flush;
        Converter& converter;
        HeldSlots& heldSlots;
        Gate& outputGate;
        const ClientCallback& client;
        const SessionLog& log;
    };

    explicit InBandSettings(const Peers& peers) : p(peers), mLog(peers.log) {}

    // Compares the settings with the current ones and applies the differences. The client is
    // notified if there was any difference, whatever the service answered.
    void apply(SourceFrame& frame, const ConfigParams& params);

  private:
    using Changes = StreamSettings::Changes;
    // Stores the settings and passes them on to the service. Returns false if nothing was stored.
    bool adopt(SourceFrame& frame, const ConfigParams& params, const Changes& changes);
    // Changes the output size for a new upscale ratio: flushes and reconfigures the session, and
    // configures the converter for side buffers of the new size.
    void reshape(SourceFrame& frame);
    void holdPlace();

    const Peers p;
    const SessionLog& mLog;
};

}  // namespace android
