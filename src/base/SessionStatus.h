// SPDX-License-Identifier: Apache-2.0
// The state of a session, as the parts of a component name it. Private to src/.
#pragma once

#include <qoz/VppComponent.h>

namespace android {

// The holder that every change of state goes through; reading it takes no lock.
using SessionStatus = VppComponent::VppStatus;
// UNINIT, INIT, IDLE, ACTIVE, PENDING, ERROR.
using Status = VppComponent::status;

}  // namespace android
