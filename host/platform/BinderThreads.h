// SPDX-License-Identifier: Apache-2.0
// The process's pool of binder threads, as a caller from another process sees it.
#pragma once

#include <functional>

namespace qoz::host {

// Runs `call` on a thread of the pool and returns when it has returned, as a two-way binder call
// does. Several callers are served at once. Before ABinderProcess_startThreadPool() has been
// called, calls wait for it.
void callOnBinderThread(const std::function<void()>& call);

}  // namespace qoz::host
