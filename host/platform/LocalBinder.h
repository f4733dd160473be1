// SPDX-License-Identifier: Apache-2.0
// Binders of objects in this process. The interface package uses these functions to convert between
// interfaces and binders.
#pragma once

#include <android/binder_interface_utils.h>

#include <memory>

namespace qoz::host {

// Creates a binder with the interface name `descriptor` for `object`. The binder owns the object.
ndk::SpAIBinder newLocalBinder(std::shared_ptr<ndk::SharedRefBase> object, const char* descriptor);

// Returns the object behind a binder, or null if `binder` is null.
std::shared_ptr<ndk::SharedRefBase> objectOf(const AIBinder* binder);

// Like objectOf(), but also returns null if the binder has another interface name.
std::shared_ptr<ndk::SharedRefBase> localObject(const ndk::SpAIBinder& binder,
                                                const char* descriptor);

}  // namespace qoz::host
