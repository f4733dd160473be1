// SPDX-License-Identifier: Apache-2.0
// Settings that a source frame carries. Private to src/.
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

// Applies them after their frame has been queued, so that they are in force from the next one on,
// and tells the client. Runs on the client's thread. On allocation failure nothing is stored that
// is not applied.
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

    // Compares the settings with those in force and applies what differs. The client is told when
    // there was any difference, whatever the service answered.
    void apply(SourceFrame& frame, const ConfigParams& params);

  private:
    using Changes = StreamSettings::Changes;
    // Stores the settings and has the service follow.
    bool adopt(SourceFrame& frame, const ConfigParams& params, const Changes& changes);
    // Another upscale ratio is another output size: empties the session, reconfigures it, and has
    // the converter make side buffers for it.
    void reshape(SourceFrame& frame);
    void holdPlace();

    const Peers p;
    const SessionLog& mLog;
};

}  // namespace android
