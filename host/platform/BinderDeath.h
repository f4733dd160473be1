// SPDX-License-Identifier: Apache-2.0
// Death notifications, from the side of the object that dies.
#pragma once

#include <android/binder_interface_utils.h>

namespace qoz::host {

// Announces the death of `object`: calls every recipient that is linked to one of its binders, one
// after another on binder threads, and returns when the last has returned. A later
// AIBinder_linkToDeath() returns STATUS_DEAD_OBJECT. A second announcement does nothing.
void announceDeath(ndk::SharedRefBase& object);

}  // namespace qoz::host
