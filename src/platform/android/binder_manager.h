// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <android/binder_ibinder.h>

extern "C" {

// The binder registered under `instance`, with a strong reference that the caller owns; null at
// once when there is none.
[[nodiscard]] AIBinder* AServiceManager_checkService(const char* instance);

// The same, but blocks until the instance is registered.
[[nodiscard]] AIBinder* AServiceManager_waitForService(const char* instance);

}  // extern "C"
