// SPDX-License-Identifier: Apache-2.0
// What a component is made of. Private to src/session.
#pragma once

#include <qoz/VppComponent.h>

#include "base/BoundedWait.h"
#include "base/ClientCallback.h"
#include "base/Gate.h"
#include "base/Log.h"
#include "base/StreamFacts.h"
#include "pipeline/Converter.h"
#include "pipeline/DeliveryQueue.h"
#include "pipeline/Flush.h"
#include "pipeline/FrameIntake.h"
#include "pipeline/HeldSlots.h"
#include "pipeline/InBandSettings.h"
#include "pipeline/OutputWorker.h"
#include "pipeline/OutstandingBuffers.h"
#include "pipeline/ReturnHandler.h"
#include "pipeline/ServiceQueue.h"
#include "pipeline/SideBufferPool.h"
#include "pipeline/YuvPool.h"
#include "session/SessionControl.h"
#include "stream/FrcAisControl.h"
#include "stream/Ports.h"
#include "stream/Reconfiguration.h"
#include "stream/ServiceEvents.h"
#include "stream/SessionStart.h"
#include "stream/StreamSettings.h"
#include "vpp/ServiceCalls.h"

namespace android {

// The parts of one component, in the order in which they build on each other. Each owns the rules
// of one concern and works on the component's members, to which it is given references here; the
// component's operations only say which part does the work. Lives exactly as long as the component.
struct VppComponent::Parts {
    explicit Parts(VppComponent& component);

    // What all share.
    SessionLog log;
    WaitLimit waitLimit;
    PublishedFacts facts;
    ClientCallback client;

    // The service.
    ServiceCalls service;
    ServiceEvents events;

    // The stream.
    StreamSettings settings;
    Ports ports;
    FrcAisControl control;
    SessionStart start;
    Reconfiguration reconfiguration;

    // The frames.
    YuvPool yuvPool;
    SideBufferPool sidePool;
    OutstandingBuffers outstanding;
    HeldSlots heldSlots;
    Converter converter;
    Gate outputGate;
    Gate eventGate;
    DeliveryQueue delivery;
    OutputWorker worker;
    ServiceQueue queue;
    ReturnHandler returns;
    Flush flush;
    InBandSettings inBand;
    FrameIntake intake;

    SessionControl session;

  private:
    // What the worker does for a Start.
    bool startPosted();
};

}  // namespace android
