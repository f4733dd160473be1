// SPDX-License-Identifier: Apache-2.0
// Names for the state of a session, for the parts of a component. Private to src/.
#pragma once

#include <qoz/VppComponent.h>

namespace android {

// Holds the state. Every change goes through it; reading it takes no lock.
using SessionStatus = VppComponent::VppStatus;
// UNINIT, INIT, IDLE, ACTIVE, PENDING, ERROR.
using Status = VppComponent::status;

}  // namespace android
