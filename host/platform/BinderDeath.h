// SPDX-License-Identifier: Apache-2.0
// Death notices from the side of what dies.
#pragma once

#include <android/binder_interface_utils.h>

namespace qoz::host {

// Calls every recipient that is linked to a binder of this object, each once and on a binder
// thread, and returns when they have returned. Later links find the object dead. A second
// announcement does nothing.
void announceDeath(ndk::SharedRefBase& object);

}  // namespace qoz::host
