// SPDX-License-Identifier: Apache-2.0
// The service manager from the side of who offers a service.
#pragma once

#include <android/binder_auto_utils.h>

#include <string>

namespace qoz::host {

// Under which a client looks for the one service of an interface.
template <typename Interface>
std::string defaultInstance() {
    return std::string(Interface::descriptor) + "/default";
}

// Registers `binder` under `instance`, in place of what was there; waiters wake.
void addService(const std::string& instance, const ndk::SpAIBinder& binder);
void removeService(const std::string& instance);

}  // namespace qoz::host
