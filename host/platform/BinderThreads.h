// SPDX-License-Identifier: Apache-2.0
// The pool of threads on which this process receives binder calls, from the side of the sender.
#pragma once

#include <functional>

namespace qoz::host {

// Runs `call` on a thread of the pool and returns when `call` has returned, like a two-way binder
// call. Several calls run at the same time. Calls made before ABinderProcess_startThreadPool() wait
// until it is called.
void callOnBinderThread(const std::function<void()>& call);

}  // namespace qoz::host
