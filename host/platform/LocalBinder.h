// SPDX-License-Identifier: Apache-2.0
// Binders of this process's own objects: what the interface package stands on.
#pragma once

#include <android/binder_interface_utils.h>

#include <memory>

namespace qoz::host {

// A new binder of the interface `descriptor` for `object`, which it keeps alive.
ndk::SpAIBinder newLocalBinder(std::shared_ptr<ndk::SharedRefBase> object, const char* descriptor);

// The object behind a binder; null when there is no binder.
std::shared_ptr<ndk::SharedRefBase> objectOf(const AIBinder* binder);

// The same, but null also when the binder is one of another interface.
std::shared_ptr<ndk::SharedRefBase> localObject(const ndk::SpAIBinder& binder,
                                                const char* descriptor);

}  // namespace qoz::host
