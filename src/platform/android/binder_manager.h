// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <android/binder_ibinder.h>

extern "C" {

// Returns the binder that is registered under `instance`, or null if there is none. Does not wait.
// The caller owns the strong reference.
[[nodiscard]] AIBinder* AServiceManager_checkService(const char* instance);

// Like AServiceManager_checkService(), but blocks until the instance is registered.
[[nodiscard]] AIBinder* AServiceManager_waitForService(const char* instance);

}  // extern "C"
