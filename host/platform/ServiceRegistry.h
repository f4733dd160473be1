// SPDX-License-Identifier: Apache-2.0
// The service manager, from the side of a service.
#pragma once

#include <android/binder_auto_utils.h>

#include <string>

namespace qoz::host {

// Returns the instance name under which clients look for the only service of an interface.
template <typename Interface>
std::string defaultInstance() {
    return std::string(Interface::descriptor) + "/default";
}

// Registers `binder` under the name `instance`, replaces an earlier registration, and wakes the
// threads that wait in AServiceManager_waitForService().
void addService(const std::string& instance, const ndk::SpAIBinder& binder);
// Removes the registration, if there is one. This may destroy the service on the calling thread.
void removeService(const std::string& instance);

}  // namespace qoz::host
