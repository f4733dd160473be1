// The service manager from the side of who offers a service.
#pragma once

#include <android/binder_auto_utils.h>

#include <string>

namespace qoz::host {

// Registers `binder` under `instance`, in place of what was there; waiters wake.
void addService(const std::string& instance, const ndk::SpAIBinder& binder);
void removeService(const std::string& instance);

}  // namespace qoz::host
