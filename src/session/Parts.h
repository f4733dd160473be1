// SPDX-License-Identifier: Apache-2.0
// The parts of a component. Private to src/session.
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

// The parts of one component, in the order in which they depend on each other. Each part owns the
// rules of one concern and works on members of the component, to which it receives references here.
// The component's operations only select the part that does the work. The object has the lifetime
// of its component.
struct VppComponent::Parts {
    explicit Parts(VppComponent& component);

    // Shared by all parts.
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
    // Carries out the worker's Start command.
    bool startPosted();
};

}  // namespace android
